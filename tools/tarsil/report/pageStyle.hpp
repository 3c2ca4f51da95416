#pragma once

namespace tarsil::cli {

/// The colours of every page, by day and in the dark.
inline constexpr const char* pageColours =
    R"(:root { color-scheme: light dark; --paper: #fff; --ink: #1c2733; --soft: #5b6875; --line: #d9dfe5;
  --blue: #1f6fb2; --red: #b3261e; --teal: #0b7a75; --violet: #6a4c93; --target: #6b7783; --cuff: #8d5a57;
  --grid: #c3ccd5; --even: #eef3f8; --odd: #e2eaf2; --edge: #f3f5ee; --flag: #3b4956;
  --good: #14622c; --good-paper: #e2f2e6; --fair: #7a4b00; --fair-paper: #fdf0d2; --bad: #8c1d18; --bad-paper: #fbe3e1; }
@media screen and (prefers-color-scheme: dark) {
  :root { --paper: #12181e; --ink: #e8edf2; --soft: #9fadba; --line: #33404c;
    --blue: #6db3f2; --red: #ff8a80; --teal: #4fd1c5; --violet: #c3a6f0; --target: #9aa7b3; --cuff: #d0a09c;
    --grid: #3a4754; --even: #1a232c; --odd: #202c37; --edge: #20251d; --flag: #8796a5;
    --good: #9be3b0; --good-paper: #17381f; --fair: #ffd88a; --fair-paper: #3d2e0c; --bad: #ffb4ac;
    --bad-paper: #4a1b18; }
}
)";

/// How report.html looks: on a wide screen, on a telephone, and on one sheet of A4.
inline constexpr const char* pageStyle =
    R"(* { box-sizing: border-box; }
body { margin: 0; background: var(--paper); color: var(--ink);
  font: 15px/1.45 "Helvetica Neue", Arial, "DejaVu Sans", sans-serif; overflow-wrap: anywhere; }
main { max-width: 1080px; margin: 0 auto; padding: 28px 32px 40px; }
header { display: flex; flex-wrap: wrap; align-items: baseline; gap: 6px 18px; border-bottom: 2px solid var(--ink);
  padding-bottom: 12px; }
h1 { margin: 0; font-size: 28px; letter-spacing: -0.01em; }
h2 { margin: 28px 0 8px; font-size: 17px; }
.result { margin: 0; padding: 2px 12px; border-radius: 12px; font-size: 14px; font-weight: 600; }
.good { background: var(--good-paper); color: var(--good); }
.fair { background: var(--fair-paper); color: var(--fair); }
.bad { background: var(--bad-paper); color: var(--bad); }
dl { display: flex; flex-wrap: wrap; gap: 4px 28px; margin: 0; flex-basis: 100%; }
.simulated { margin: 0 0 14px; padding: 8px 14px; background: #1c2733; color: #ffd54a; font-size: 18px;
  font-weight: 700; letter-spacing: 0.04em; text-align: center; }
.remark { margin: 12px 0 0; }
.summary small { display: block; color: var(--soft); font-size: 12px; }
dt { color: var(--soft); font-size: 12px; }
dd { margin: 0; font-weight: 600; }
.missing { margin: 14px 0 0; padding: 10px 14px 10px 32px; background: var(--fair-paper); color: var(--fair);
  border-radius: 6px; }
.summary { display: flex; flex-wrap: wrap; gap: 14px; margin: 18px 0 6px; }
.summary div { flex: 1 1 130px; border: 1px solid var(--line); border-radius: 6px; padding: 9px 14px; }
.summary span { display: block; color: var(--soft); font-size: 12px; }
.summary b { font-size: 22px; }
.summary i { margin-left: 5px; color: var(--soft); font-style: normal; }
figure { margin: 12px 0 0; }
svg { display: block; width: 100%; height: auto; font-family: inherit; }
svg.narrow { display: none; }
.band.even { fill: var(--even); }
.band.odd { fill: var(--odd); }
.band.warm-up, .band.recovery { fill: var(--edge); }
.band-name { fill: var(--soft); font-size: 12px; text-anchor: middle; }
.grid { stroke: var(--grid); stroke-width: 0.6; }
.grid.time { stroke-dasharray: 2 3; }
.tick { fill: var(--soft); font-size: 11.5px; text-anchor: end; }
.tick.time { text-anchor: middle; }
.title { fill: var(--ink); font-size: 13.5px; font-weight: 600; }
.legend { fill: var(--ink); font-size: 12px; }
polyline { fill: none; stroke-linejoin: round; }
polyline.target, .key.target { stroke: var(--target); stroke-width: 1.6; stroke-dasharray: 5 3; }
polyline.measured, .key.measured { stroke: var(--blue); stroke-width: 2; }
polyline.saturation { stroke: var(--teal); stroke-width: 2; }
circle.measured { fill: var(--blue); }
.cuff line { stroke: var(--cuff); stroke-width: 1.2; }
.cuff text { fill: var(--ink); font-size: 12px; text-anchor: middle; }
path.systolic { fill: var(--red); }
path.diastolic { fill: var(--violet); }
.key.systolic { stroke: var(--red); stroke-width: 6; }
.key.diastolic { stroke: var(--violet); stroke-width: 6; }
.flag line { stroke: var(--flag); stroke-width: 1; stroke-dasharray: 3 2; }
.flag circle { fill: var(--flag); }
.flag text { fill: var(--paper); font-size: 10px; text-anchor: middle; }
.flag.failure line { stroke: var(--red); }
.flag.failure circle { fill: var(--red); }
table { border-collapse: collapse; width: 100%; font-variant-numeric: tabular-nums; }
th, td { padding: 5px 10px; border-bottom: 1px solid var(--line); text-align: right; font-weight: 400; }
thead th { color: var(--soft); font-size: 12.5px; vertical-align: bottom; }
thead th[colspan] { text-align: center; border-left: 1px solid var(--line); }
tbody th, thead tr:first-child th:first-child { text-align: left; }
tbody th { font-weight: 600; }
.events td:last-child { width: 100%; text-align: left; }
.events th, .events td:nth-child(2) { white-space: nowrap; }
.events .failure { color: var(--red); }
.note { margin: 6px 0 0; color: var(--soft); font-size: 13px; }
footer { margin-top: 26px; color: var(--soft); font-size: 12.5px; }
@media screen and (max-width: 640px) {
  main { padding: 16px 14px 28px; }
  .simulated { font-size: 15px; }
  svg.wide { display: none; }
  svg.narrow { display: block; }
  .narrow .cuff text { font-size: 10px; }
  /* A phase is a card: its values one below the other, each with its name. */
  .phases thead { display: none; }
  .phases tr { display: grid; grid-template-columns: 1fr 1fr; gap: 1px 16px; padding: 8px 0;
    border-bottom: 1px solid var(--line); }
  .phases th { grid-column: 1 / -1; padding: 0; border: 0; }
  .phases td { padding: 0; border: 0; text-align: left; }
  .phases td:empty { display: none; }
  .phases td::before { color: var(--soft); font-size: 12.5px; }
  .phases td:nth-child(2)::before { content: "begin "; }
  .phases td:nth-child(3)::before { content: "time "; }
  .treadmill td:nth-child(4)::before { content: "km/h planned "; }
  .treadmill td:nth-child(5)::before { content: "km/h reached "; }
  .treadmill td:nth-child(6)::before { content: "% planned "; }
  .treadmill td:nth-child(7)::before { content: "% reached "; }
  .bicycle td:nth-child(4)::before { content: "W planned "; }
  .bicycle td:nth-child(5)::before { content: "W reached "; }
  .mets td:nth-last-child(3)::before { content: "METs "; }
  .phases td:nth-last-child(2)::before { content: "mmHg "; }
  .phases td:nth-last-child(1)::before { content: "SpO2 at end, % "; }
  .events th, .events td { padding: 5px 8px 5px 0; vertical-align: top; }
}
@media print {
  @page { size: A4; margin: 11mm; }
  body { font-size: 10px; line-height: 1.3; -webkit-print-color-adjust: exact; print-color-adjust: exact; }
  main { max-width: none; padding: 0; }
  header { padding-bottom: 5px; gap: 2px 12px; }
  h1 { font-size: 18px; }
  h2 { margin: 9px 0 2px; font-size: 12px; }
  .simulated { margin: 0 0 6px; padding: 3px; font-size: 12px; }
  .result { font-size: 11px; }
  dl { gap: 1px 18px; }
  dt, .summary span, .summary small { font-size: 9px; }
  .summary { flex-wrap: nowrap; gap: 6px; margin: 7px 0 3px; }
  .summary div { flex-basis: 0; padding: 3px 8px; }
  .summary b { font-size: 15px; }
  .missing { margin: 6px 0 0; padding: 4px 8px 4px 22px; }
  figure { margin: 4px 0 0; }
  svg.wide { max-height: 128mm; }
  th, td { padding: 1.5px 6px; }
  thead th { font-size: 9px; }
  .note { margin: 3px 0 0; font-size: 9px; }
  footer { margin-top: 6px; font-size: 9px; }
  figure, tr { break-inside: avoid; }
}
)";

}  // namespace tarsil::cli

#pragma once

namespace tarsil::cli {

/// How report.html looks.
inline constexpr const char* pageStyle =
    R"(:root { color-scheme: light; --ink: #1c2733; --soft: #5b6875; --line: #d9dfe5;
  --blue: #1f6fb2; --red: #b3261e; --teal: #0b7a75; }
* { box-sizing: border-box; }
body { margin: 0; background: #fff; color: var(--ink); font: 15px/1.45 "Helvetica Neue", Arial, "DejaVu Sans", sans-serif; }
main { max-width: 1080px; margin: 0 auto; padding: 28px 32px 40px; }
header { display: flex; flex-wrap: wrap; align-items: baseline; gap: 6px 18px; border-bottom: 2px solid var(--ink);
  padding-bottom: 12px; }
h1 { margin: 0; font-size: 28px; letter-spacing: -0.01em; }
h2 { margin: 28px 0 8px; font-size: 17px; }
.result { margin: 0; padding: 2px 12px; border-radius: 12px; font-size: 14px; font-weight: 600; }
.good { background: #e2f2e6; color: #14622c; }
.fair { background: #fdf0d2; color: #7a4b00; }
.bad { background: #fbe3e1; color: #8c1d18; }
dl { display: flex; flex-wrap: wrap; gap: 4px 28px; margin: 0; flex-basis: 100%; }
.simulated { margin: 0 0 14px; padding: 8px 14px; background: #1c2733; color: #ffd54a; font-size: 18px;
  font-weight: 700; letter-spacing: 0.04em; text-align: center; }
.remark { margin: 12px 0 0; }
.summary small { display: block; color: var(--soft); font-size: 12px; }
dt { color: var(--soft); font-size: 12px; }
dd { margin: 0; font-weight: 600; }
.missing { margin: 14px 0 0; padding: 10px 14px 10px 32px; background: #fdf0d2; color: #7a4b00; border-radius: 6px; }
.summary { display: flex; gap: 14px; margin: 18px 0 6px; }
.summary div { flex: 1; border: 1px solid var(--line); border-radius: 6px; padding: 9px 14px; }
.summary span { display: block; color: var(--soft); font-size: 12px; }
.summary b { font-size: 22px; }
.summary i { margin-left: 5px; color: var(--soft); font-style: normal; }
figure { margin: 12px 0 0; }
svg { display: block; width: 100%; height: auto; font-family: inherit; }
.band.even { fill: #eef3f8; }
.band.odd { fill: #e2eaf2; }
.band.warm-up, .band.recovery { fill: #f3f5ee; }
.band-name { fill: var(--soft); font-size: 12px; text-anchor: middle; }
.grid { stroke: #c3ccd5; stroke-width: 0.6; }
.grid.time { stroke-dasharray: 2 3; }
.tick { fill: var(--soft); font-size: 11.5px; text-anchor: end; }
.tick.time { text-anchor: middle; }
.title { fill: var(--ink); font-size: 13.5px; font-weight: 600; }
.legend { fill: var(--ink); font-size: 12px; }
polyline { fill: none; stroke-linejoin: round; }
polyline.target, .key.target { stroke: #6b7783; stroke-width: 1.6; stroke-dasharray: 5 3; }
polyline.measured, .key.measured { stroke: var(--blue); stroke-width: 2; }
polyline.saturation { stroke: var(--teal); stroke-width: 2; }
circle.measured { fill: var(--blue); }
.cuff line { stroke: #8d5a57; stroke-width: 1.2; }
.cuff text { fill: var(--ink); font-size: 12px; text-anchor: middle; }
path.systolic { fill: var(--red); }
path.diastolic { fill: #6a4c93; }
.key.systolic { stroke: var(--red); stroke-width: 6; }
.key.diastolic { stroke: #6a4c93; stroke-width: 6; }
.flag line { stroke: #3b4956; stroke-width: 1; stroke-dasharray: 3 2; }
.flag circle { fill: #3b4956; }
.flag text { fill: #fff; font-size: 10px; text-anchor: middle; }
.flag.failure line { stroke: var(--red); }
.flag.failure circle { fill: var(--red); }
table { border-collapse: collapse; width: 100%; font-variant-numeric: tabular-nums; }
th, td { padding: 5px 10px; border-bottom: 1px solid var(--line); text-align: right; font-weight: 400; }
thead th { color: var(--soft); font-size: 12.5px; vertical-align: bottom; }
thead th[colspan] { text-align: center; border-left: 1px solid var(--line); }
tbody th, thead tr:first-child th:first-child { text-align: left; }
tbody th { font-weight: 600; }
.events td:last-child { width: 100%; text-align: left; }
.events .failure { color: var(--red); }
.note { margin: 6px 0 0; color: var(--soft); font-size: 13px; }
footer { margin-top: 26px; color: var(--soft); font-size: 12.5px; }
@media print {
  @page { size: A4; margin: 12mm; }
  body { font-size: 11px; -webkit-print-color-adjust: exact; print-color-adjust: exact; }
  main { max-width: none; padding: 0; }
  figure, tr { break-inside: avoid; }
}
)";

}  // namespace tarsil::cli

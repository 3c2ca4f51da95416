#!/usr/bin/env bash
# compare.sh PROGRAM SCRIPT.jsonl: replays the script and shows where its events differ from SCRIPT.expected.
set -euo pipefail
"$1" replay --ops "$2" | diff -u "${2%.jsonl}.expected" -

#!/usr/bin/env bash
# Installs what is missing, builds, and runs the atomscan command on the bundled sample movie.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake --preset release >/dev/null
cmake --build --preset release --target atomscan_tool
./build/release/Tools/atomscan/atomscan info Tests/Data/corpus/broadcast_2997_tc_c608_aac.mov

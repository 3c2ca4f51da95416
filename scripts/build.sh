# Configures and builds. Source it, then call `build PRESET [TARGET...]`.

# build PRESET [TARGET...]: everything when no target is named. What configuring says is shown only when it fails.
build() {
  local preset=$1
  shift
  local targets=()
  [ $# -eq 0 ] || targets=(--target "$@")
  local log
  log=$(mktemp)
  echo "Building ($preset)"
  cmake --preset "$preset" >"$log" 2>&1 || {
    cat "$log"
    echo "$0: could not configure $preset; the output is above" >&2
    exit 1
  }
  sed -n '/left out/p' "$log"
  rm -f "$log"
  cmake --build --preset "$preset" --parallel "$(nproc)" "${targets[@]}"
}

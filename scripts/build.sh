# Configures and builds. Source it, then call `build PRESET [-DOPTION=VALUE...] [TARGET...]`.

# build PRESET [-DOPTION=VALUE...] [TARGET...]: everything when no target is named. What configuring says is shown only when
# it fails, but for the parts that are left out.
build() {
  local preset=$1
  shift
  local options=() targets=()
  while [[ ${1:-} == -D* ]]; do
    options+=("$1")
    shift
  done
  [ $# -eq 0 ] || targets=(--target "$@")
  local log
  log=$(mktemp)
  echo "Building ($preset)"
  cmake --preset "$preset" "${options[@]}" >"$log" 2>&1 || {
    cat "$log"
    echo "$0: could not configure $preset; the output is above" >&2
    exit 1
  }
  sed -n 's/^-- \(left out\)/\1/p' "$log"
  rm -f "$log"
  cmake --build --preset "$preset" --parallel "$(nproc)" "${targets[@]}"
}

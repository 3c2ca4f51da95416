# Installs Debian packages that are missing. Source it, then call `need PACKAGE...`.

# need PACKAGE...: says what is missing and installs it, or ends the script with one line that says why it cannot.
need() {
  local missing=()
  local package
  for package in "$@"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' || missing+=("$package")
  done
  [ ${#missing[@]} -eq 0 ] && return 0

  local as_root=()
  if [ "$(id -u)" -ne 0 ]; then
    if ! sudo -n true 2>/dev/null; then
      echo "$0: cannot install ${missing[*]}: run it as root, or: sudo apt-get install ${missing[*]}" >&2
      exit 1
    fi
    as_root=(sudo -n)
  fi
  echo "Installing ${missing[*]}"
  local log
  log=$(mktemp)
  if ! { "${as_root[@]}" apt-get update &&
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "${missing[@]}"; } \
    >"$log" 2>&1; then
    tail -n 5 "$log" >&2
    echo "$0: apt-get could not install ${missing[*]}; its whole output is in $log" >&2
    exit 1
  fi
  rm -f "$log"
}

# What each kind of work needs on a bare Debian 12.
packages_build=(g++ cmake ninja-build libudev-dev)
packages_tools=(libcli11-dev libfmt-dev nlohmann-json3-dev libmicrohttpd-dev libsdbus-c++-dev libedit-dev pkg-config)
packages_objc=(gobjc++ libgnustep-base-dev)
packages_examples=(libglib2.0-dev libasio-dev qtbase5-dev qt6-base-dev)
packages_test=(libgtest-dev libgmock-dev libumockdev-dev umockdev dbus-daemon xvfb xdotool)
# llvm gives the frames of a sanitizer's report their names.
packages_clang=(clang libclang-rt-14-dev llvm)
packages_bench=(libbenchmark-dev nlohmann-json3-dev libasio-dev libqt5serialport5-dev libserial-dev libserialport-dev python3-serial pkg-config)
# With the browser and the shells that tests leave out where they are missing.
packages_ci=("${packages_clang[@]}" clang-format clang-tidy ccache chromium zsh fish "${packages_bench[@]}")

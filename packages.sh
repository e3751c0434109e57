# Sourced by ./run and ./test: the Debian packages that NvAdmin is built and tested with.

build_packages=(g++ cmake ninja-build ccache pkg-config libsqlite3-dev libmariadb-dev libedit-dev libfmt-dev libcli11-dev
  libsodium-dev libssl-dev libboost-dev nlohmann-json3-dev iso-codes)
# Debian's npm would clash with one that is there already.
if ! command -v npm >/dev/null; then build_packages+=(nodejs npm); fi
test_packages=(libgtest-dev libgmock-dev tmux sqlite3 mariadb-server-core mariadb-client-core
  mariadb-server galera-4 rsync python3 openssl chromium)

# Installs those of the packages that are missing. Where there is no apt, the build itself shows what it lacks.
install_missing() {
  command -v apt-get >/dev/null && command -v dpkg-query >/dev/null || return 0
  local present missing=() package
  present=" $(dpkg-query -W -f='${db:Status-Status}=${Package} ' "$@" 2>/dev/null || true)"
  for package in "$@"; do
    [[ $present == *" installed=$package "* ]] || missing+=("$package")
  done
  ((${#missing[@]})) || return 0

  local as_root=()
  if ((EUID != 0)); then as_root=(sudo); fi
  echo "Installing ${missing[*]} ..." >&2
  local log
  log=$(mktemp)
  if ! { "${as_root[@]}" apt-get update -q &&
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -q -y --no-install-recommends "${missing[@]}"; } \
    >"$log" 2>&1 </dev/null; then
    cat "$log" >&2
    rm -f "$log"
    echo "These packages are needed and apt could not install them: ${missing[*]}" >&2
    echo "Install them as your system's administrator, then try again." >&2
    return 1
  fi
  rm -f "$log"
}

# Runs a command with its output kept back, and shows the output when it fails.
quietly() {
  local log
  log=$(mktemp)
  if ! "$@" >"$log" 2>&1; then
    cat "$log" >&2
    rm -f "$log"
    echo "This failed: $*" >&2
    return 1
  fi
  rm -f "$log"
}

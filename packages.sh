# Sourced by ./run and ./test: the Debian packages that NvAdmin is built and tested with.

build_packages=(g++ cmake ninja-build ccache pkg-config libsqlite3-dev libmariadb-dev libedit-dev libfmt-dev libcli11-dev
  libsodium-dev libssl-dev libboost-dev nlohmann-json3-dev iso-codes)
# Debian's npm would clash with one that is there already.
if ! command -v npm >/dev/null; then build_packages+=(nodejs npm); fi
test_packages=(libgtest-dev libgmock-dev tmux sqlite3 python3 openssl chromium)
# Where these can't be had, the tests of a database server and of a cluster say so and are skipped.
server_packages=(mariadb-server-core mariadb-client-core galera-4 rsync lsof)

as_root=()
if ((EUID != 0)); then as_root=(sudo); fi

# Installs those of the packages that are missing. Where there is no apt, the build itself shows what it lacks.
install_missing() {
  command -v apt-get >/dev/null && command -v dpkg-query >/dev/null || return 0
  local present missing=() package
  present=" $(dpkg-query -W -f='${db:Status-Status}=${Package} ' "$@" 2>/dev/null || true)"
  for package in "$@"; do
    [[ $present == *" installed=$package "* ]] || missing+=("$package")
  done
  ((${#missing[@]})) || return 0

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

# What hands the state of one node of a cluster to another lies in mariadb-server, which, installed, would start a
# service for the whole system; so its scripts alone go into FOLDER, for PATH.
unpack_state_scripts() { # FOLDER
  if command -v wsrep_sst_rsync >/dev/null || [[ -x $1/wsrep_sst_rsync ]]; then return; fi
  local unpacked
  unpacked=$(mktemp -d)
  (cd "$unpacked" && "${as_root[@]}" apt-get update -q && apt-get download -q mariadb-server &&
    dpkg-deb -x mariadb-server_*.deb .) >/dev/null 2>&1 </dev/null || true
  if [[ -x $unpacked/usr/bin/wsrep_sst_rsync ]]; then
    mkdir -p "$1"
    mv "$unpacked"/usr/bin/wsrep_sst_{common,rsync} "$1"
  fi
  rm -rf "$unpacked"
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

#!/usr/bin/env bash
# Starts or stops a MariaDB server of the tests' own: its data, socket and log lie in one folder, and nothing of the
# system's server is read or touched.
#   mariadb-server.sh start|stop|kill|resume|pause|continue FOLDER [OPTION-OF-mariadbd...]
# stop removes the folder; behind kill, resume starts the server on what it left. Between pause and continue it stands
# still.
set -euo pipefail
PATH=$PATH:/usr/sbin

stop() {
  local pid
  pid=$(cat "$folder/pid" 2>/dev/null) || return 0
  kill "$pid" 2>/dev/null || return 0
  for ((tries = 0; tries < 300; tries++)); do
    kill -0 "$pid" 2>/dev/null || return 0
    sleep 0.1
  done
  kill -9 "$pid"
}

start() {
  local as_user=()
  if ((EUID == 0)); then as_user=(--user=root); fi
  if [[ ! -d $folder/data ]]; then
    # A server that starts removes temporary tables of others from the system's folder.
    mkdir -p -m 700 "$folder" "$folder/tmp"
    mariadb-install-db --no-defaults "${as_user[@]}" --auth-root-authentication-method=normal --skip-test-db \
      --datadir="$folder/data" --tmpdir="$folder/tmp" >"$folder/install.log" 2>&1 || { cat "$folder/install.log" >&2; return 1; }
  fi
  # Flushed to the system alone: what the tests kill is their own programs, not the machine.
  setsid mariadbd --no-defaults "${as_user[@]}" --datadir="$folder/data" --tmpdir="$folder/tmp" --socket="$folder/socket" --skip-networking \
    --pid-file="$folder/pid" --log-error="$folder/log" --innodb-buffer-pool-size=64M --innodb-log-file-size=16M \
    --innodb-flush-log-at-trx-commit=2 --skip-log-bin --max-connections=200 "$@" </dev/null >/dev/null 2>&1 &
  local server=$!
  for ((tries = 0; tries < 600; tries++)); do
    if mariadb --no-defaults -uroot -S "$folder/socket" -e 'DO 0' 2>/dev/null; then return 0; fi
    kill -0 "$server" 2>/dev/null || break
    sleep 0.1
  done
  echo "the server didn't start:" >&2
  tail -n 20 "$folder/log" >&2
  return 1
}

# A thread that runs just now stops a little later.
pause() {
  local pid
  pid=$(<"$folder/pid")
  kill -STOP "$pid"
  while grep -h '^State:' "/proc/$pid/task/"*/status | grep -qv stopped; do sleep 0.02; done
}

action=$1 folder=$2
shift 2
case $action in
  start) stop; rm -rf "$folder"; start "$@" ;;
  stop) stop; rm -rf "$folder" ;;
  kill) kill -9 "$(<"$folder/pid")"; while kill -0 "$(<"$folder/pid")" 2>/dev/null; do sleep 0.05; done ;;
  resume) start "$@" ;;
  pause) pause ;;
  continue) kill -CONT "$(<"$folder/pid")" ;;
esac

#!/usr/bin/env bash
# A cluster of three MariaDB nodes of the tests' own on this machine, on free ports, its data, sockets and logs in one
# folder. Nodes are numbered from 1; nN.sock is the socket of a node, and `ports` holds their ports for clients.
#   galera-cluster.sh find                   whether this machine has what it takes; else what is lacking
#   galera-cluster.sh make FOLDER OWNER      starts a cluster; once the process OWNER is gone, however, all is removed
#   galera-cluster.sh kill FOLDER N...       what the system has in memory is kept, as the machine itself goes on
#   galera-cluster.sh halt FOLDER N          as for its maintenance
#   galera-cluster.sh start FOLDER N         the node joins the others, and has caught up with them
#   galera-cluster.sh bootstrap FOLDER N     the node is the first of its cluster
#   galera-cluster.sh position FOLDER N      of a node that doesn't run: the cluster's UUID, and the last change it has
#   galera-cluster.sh stop FOLDER
set -euo pipefail
PATH=$PATH:/usr/sbin
as_user=()
# What copies the state from node to node doesn't work as root.
if ((EUID == 0)); then
  server_user=$(id -un mysql 2>/dev/null || echo nobody)
  as_user=(--user="$server_user")
fi
galera=
for library in /usr/lib/galera/libgalera_smm.so /usr/lib64/galera-4/libgalera_smm.so; do
  if [[ -f $library ]]; then galera=$library; fi
done

find_lacking() {
  local program
  for program in mariadbd mariadb mariadb-install-db wsrep_sst_rsync rsync lsof; do
    command -v "$program" >/dev/null || { echo "$program isn't installed"; return 1; }
  done
  [[ -n $galera ]] || { echo "galera-4 isn't installed"; return 1; }
}

# Of each node the first of five ports in a row, below those that the system gives to its clients.
choose_ports() {
  local chosen=() first port
  for ((tries = 0; tries < 200 && ${#chosen[@]} < 3; ++tries)); do
    first=$((20000 + (RANDOM * 32768 + RANDOM) % 2400 * 5))
    [[ " ${chosen[*]} " != *" $first "* ]] || continue
    for ((port = first; port < first + 5; ++port)); do
      if (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null; then continue 2; fi
    done
    chosen+=("$first")
  done
  echo "${chosen[@]}"
}

# node_options N: the ports are for clients, the cluster, changes and whole states that come in.
node_options() {
  local ports member members=() first provider
  read -ra ports <"$folder/ports"
  for member in "${ports[@]}"; do members+=("127.0.0.1:$((member + 1))"); done
  first=${ports[$1 - 1]}
  # A node that a busy machine holds up for two seconds isn't dead yet.
  provider="base_port=$((first + 1));gmcast.listen_addr=tcp://127.0.0.1:$((first + 1))"
  provider+=";ist.recv_addr=127.0.0.1:$((first + 2));gcache.size=32M;pc.recovery=false"
  provider+=";evs.keepalive_period=PT0.5S;evs.suspect_timeout=PT3S;evs.inactive_timeout=PT9S;evs.install_timeout=PT8S"
  options=(--no-defaults "${as_user[@]}" --datadir="$folder/n$1" --tmpdir="$folder/tmp$1" --socket="$folder/n$1.sock"
    --bind-address=127.0.0.1 --port="$first" --pid-file="$folder/n$1.pid" --max-connections=100 --skip-log-bin
    --binlog-format=ROW --innodb-autoinc-lock-mode=2 --innodb-flush-log-at-trx-commit=1
    --innodb-buffer-pool-size=64M --innodb-log-file-size=16M --wsrep-on=ON --wsrep-provider="$galera"
    --wsrep-cluster-name=nvadmin-tests --wsrep-cluster-address="gcomm://$(IFS=,; echo "${members[*]}")"
    --wsrep-node-name="n$1" --wsrep-node-address="127.0.0.1:$((first + 1))" --wsrep-sst-method=rsync
    --wsrep-sst-receive-address="127.0.0.1:$((first + 3))" --wsrep-provider-options="$provider")
}

is_running() { kill -0 "$(cat "$folder/n$1.pid" 2>/dev/null || echo x)" 2>/dev/null; }

is_synced() {
  local state
  state=$(mariadb --no-defaults -uroot -N -S "$folder/n$1.sock" \
    -e "SHOW STATUS LIKE 'wsrep_local_state_comment'" 2>/dev/null) || return 1
  [[ $state == *Synced ]]
}

# Also of a node that was killed, which a plain start would send for a whole copy of another's data.
position() {
  node_options "$1"
  mariadbd "${options[@]}" --wsrep-recover --log-error="$folder/n$1.position" </dev/null >/dev/null 2>&1 || true
  sed -n 's/.*Recovered position: *//p' "$folder/n$1.position" | tail -n 1
  rm -f "$folder/n$1.position"
}

run_node() { # N [OPTION-OF-mariadbd...]
  local node=$1
  shift
  node_options "$node"
  rm -f "$folder/n$node.pid"
  setsid mariadbd "${options[@]}" --log-error="$folder/n$node.log" "$@" </dev/null >/dev/null 2>&1 &
  local server=$!
  for ((tries = 0; tries < 1200; ++tries)); do
    if is_synced "$node"; then return 0; fi
    kill -0 "$server" 2>/dev/null || break
    sleep 0.05
  done
  echo "node $node didn't come to be in step with the others:" >&2
  grep -E 'ERROR|Warning' "$folder/n$node.log" | tail -n 20 >&2
  return 1
}

start_node() { run_node "$1" --wsrep-start-position="$(position "$1")"; }

bootstrap_node() {
  sed -i 's/^safe_to_bootstrap:.*/safe_to_bootstrap: 1/' "$folder/n$1/grastate.dat" 2>/dev/null || true
  run_node "$1" --wsrep-new-cluster
}

stop_node() {
  if ! is_running "$1"; then return 0; fi
  local server
  server=$(<"$folder/n$1.pid")
  kill "$server" 2>/dev/null || true
  for ((tries = 0; tries < 200; ++tries)); do
    kill -0 "$server" 2>/dev/null || return 0
    sleep 0.05
  done
  kill -9 "$server" 2>/dev/null || true
}

kill_node() {
  local server
  server=$(<"$folder/n$1.pid")
  kill -9 "$server"
  while kill -0 "$server" 2>/dev/null; do sleep 0.02; done
}

remove() {
  local node
  for node in 1 2 3; do
    if is_running "$node"; then kill -9 "$(<"$folder/n$node.pid")" || true; fi
  done
  rm -rf "$folder"
}

# The nodes begin with the same data and the same history, so that none has to copy another's.
make() {
  mkdir -p -m 700 "$folder"
  choose_ports >"$folder/ports"
  (($(wc -w <"$folder/ports") == 3)) || { echo "there are no free ports on 127.0.0.1" >&2; return 1; }
  setsid bash -c 'while kill -0 "$1" 2>/dev/null; do sleep 0.5; done; bash "$2" stop "$3"' - "$1" "$0" "$folder" \
    </dev/null >/dev/null 2>&1 &
  # A server that starts removes temporary tables of others from the system's folder.
  mkdir "$folder"/tmp{,1,2,3}
  if ((EUID == 0)); then chown "$server_user:" "$folder" "$folder"/tmp*; fi
  mariadb-install-db --no-defaults "${as_user[@]}" --auth-root-authentication-method=normal --skip-test-db \
    --datadir="$folder/n1" --tmpdir="$folder/tmp" >"$folder/install.log" 2>&1 ||
    { cat "$folder/install.log" >&2; return 1; }
  bootstrap_node 1
  stop_node 1
  cp -a "$folder/n1" "$folder/n2"
  cp -a "$folder/n1" "$folder/n3"
  bootstrap_node 1
  run_node 2
  run_node 3
}

action=$1 folder=${2:-}
shift $(($# < 2 ? $# : 2))
case $action in
  find) find_lacking ;;
  make) make "$1" ;;
  kill) for node; do kill_node "$node"; done ;;
  halt) stop_node "$1" ;;
  start) start_node "$1" ;;
  bootstrap) bootstrap_node "$1" ;;
  position) position "$1" ;;
  stop) remove ;;
esac

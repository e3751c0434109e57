# An account on a cluster of three MariaDB nodes: nodes are killed under writes, and the rest goes on.
source "$(dirname "$0")/common.bash"

galera=$(readlink -f "$(dirname "$0")/../support/galera-cluster.sh")
lacking=$(bash "$galera" find) || { echo "Skipped: $lacking"; exit 0; }
cluster=$(mktemp -d "${TMPDIR:-/tmp}/nvadmin-cluster-XXXXXX")
stop_cluster() { bash "$galera" stop "$cluster"; }
at_exit=(stop_cluster remove_work)
bash "$galera" make "$cluster" $$ || { echo "the cluster didn't start"; exit 1; }

read -ra ports <"$cluster/ports"
on_node() { mariadb --no-defaults -uroot -N -S "$cluster/n$1.sock" -e "$2"; }
on_node 1 "
  CREATE DATABASE sales CHARACTER SET latin1 COLLATE latin1_nopad_bin;
  CREATE USER nvadmin@localhost; GRANT ALL ON sales.* TO nvadmin@localhost"
# The same data behind two addresses: by SALES all write on node 1 while it is there, by CROSSED on node 3.
address() { echo "mariadb://nvadmin@127.0.0.1:$1,127.0.0.1:$2,127.0.0.1:$3/sales?connect-timeout=3&timeout=30"; }
nvadmin account add SALES --datastore MYSQL --store "$(address "${ports[@]}")"
expect_equal "exit code of account add SALES" $? 0
nvadmin account add CROSSED --datastore MYSQL --store "$(address "${ports[2]}" "${ports[1]}" "${ports[0]}")"
expect_equal "exit code of account add CROSSED" $? 0
nvadmin user add ann --account SALES,CROSSED <<<'pass word' >/dev/null
expect_equal "exit code of user add" $? 0

# A node that hands its state to another, or is taken out of step for a while, is passed over, while there is one better.
node_for_others() {
  expect_run "$1" 0 nvadmin account add OTHER --datastore MYSQL --store "$(address "${ports[@]}")" --check
  expect_match "$1" "$out" "^server .* at 127.0.0.1:$2"
}
node_for_others "the first node in step" "${ports[0]}"
on_node 1 'SET GLOBAL wsrep_desync = ON'
node_for_others "the first node out of step" "${ports[1]}"
for node in 2 3; do on_node "$node" 'SET GLOBAL wsrep_desync = ON'; done
node_for_others "all out of step" "${ports[0]}"
for node in 1 2 3; do
  on_node "$node" 'SET GLOBAL wsrep_desync = OFF'
  for ((tries = 0; tries < 600; ++tries)); do
    [[ $(on_node "$node" "SHOW STATUS LIKE 'wsrep_local_state_comment'") == *Synced ]] && break
    sleep 0.1
  done
done

sources=$(readlink -f "$(dirname "$0")/../..")
NVADMIN=$program NVADMIN_HOME=$home GALERA=$galera CLUSTER=$cluster \
  PYTHONPATH=$sources/client:$sources/tests/e2e/backserver:$sources/tests/e2e/cluster \
  python3 -B -m unittest cluster_test "${@:2}" 2>&1
expect_equal "exit code of the Python tests" $? 0
finish

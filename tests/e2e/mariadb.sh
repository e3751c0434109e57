# The program on a server account: a user of the database with a password and the rights that are needed, sentences,
# locks between two homes, a transfer file, and clients that write while the server is killed.
source "$(dirname "$0")/common.bash"
source "$(dirname "$0")/terminal.bash"
nl=$'\n'
shared=${NVADMIN_TEST_MARIADB:-}
[[ -n $shared ]] || { echo "Skipped: no MariaDB server; run the tests through ./test or ctest"; exit 0; }
script=$(readlink -f "$(dirname "$0")")/../support/mariadb-server.sh
server=$work/mariadb
stop_all() {
  stop_terminal
  bash "$script" stop "$server"
}
at_exit=(stop_all remove_work)
bash "$script" start "$server" --innodb-flush-log-at-trx-commit=1 || exit 1
export NVADMIN_TEST_OWN_MARIADB=$server
as_root() { mariadb --no-defaults -uroot -N -S "$server/socket" -e "$1"; }
as_root "CREATE DATABASE sales CHARACTER SET latin1 COLLATE latin1_nopad_bin;
  CREATE USER clerk@localhost IDENTIFIED BY 'a secret';
  CREATE USER reader@localhost; GRANT SELECT ON sales.* TO reader@localhost;
  GRANT SELECT, INSERT, UPDATE, DELETE, CREATE, DROP ON sales.* TO clerk@localhost"
address="mariadb://clerk@/sales?connect-timeout=2&socket=$server/socket"

# Too few rights are told, with the way out, and nothing is made.
expect_run "a reader" 1 nvadmin account add SALES --datastore MYSQL --store "${address/clerk/reader}"
expect_match "a reader" "$err" "user reader lacks rights on database sales: .*INSERT.*give them with GRANT ALL ON sales\.\* TO reader@localhost"
expect_equal "nothing is made" "$(as_root 'SHOW TABLES IN sales')" ""

# The password typed at a terminal: not shown, not on a command line, kept for this user alone.
open_terminal 160
typed "'$program' --home '$home' account add SALES --datastore MYSQL --store '$address'; echo code \$?"
see "the question" 'Password of clerk for database sales, empty for none:'
typed 'a wrong one'
see "a wrong password" 'it refuses user clerk: the user name or the password is wrong.*code 4'
new_screen
typed "'$program' --home '$home' account add SALES --datastore MYSQL --store '$address'; echo code \$?"
see "the question again" 'empty for none:'
typed 'a secret'
see "added" 'code 0'
expect_equal "nothing secret was shown" "$(count_shown 'secret|wrong one')" 0
expect_run "the accounts" 0 nvadmin account list
expect_equal "the accounts" "$out" "SALES                MYSQL  $address"

# Sentences; the second program of a home sees what the first one did.
sales() { nvadmin --account SALES tcl "$@"; }
expect_run "files and items" 0 sales -c 'CREATE-FILE STOCK 3' -c 'PUT STOCK 10 1 Tea' -c 'PUT STOCK 9 1 Café' \
  -c 'PUT STOCK 9 2 12' -c 'PUT STOCK "a b " 1 blank' -c 'PUT DICT STOCK NAME 1 A' -c 'PUT DICT STOCK NAME 2 1' \
  -c 'PUT DICT STOCK NAME 3 Name' -c 'PUT DICT STOCK NAME 9 L' -c 'PUT DICT STOCK NAME 10 10'
expect_run "read again" 0 sales -c 'CT STOCK 9' -c 'SORT STOCK WITH NAME = "[a]" NAME' -c 'LISTF'
expect_match "read again" "$out" "Café.*12.*Name.*10 .*Tea.*9 .*Café.*a b .*blank.*stock"
expect_run "SQL" 0 sales -c "SELECT A0, A1 FROM stock WHERE A1 LIKE 'T%'" -c "UPDATE stock SET A2 = '7' WHERE A0 = '10'" -c 'CT STOCK 10'
expect_match "SQL" "$out" "Tea.*002 7"
expect_run "a list is kept" 0 sales -c 'SELECT STOCK WITH NAME = "Tea"' -c 'SAVE-LIST TEAS'
expect_run "and got" 0 sales -c 'GET-LIST TEAS' -c 'LIST STOCK NAME'
expect_match "and got" "$out" "Tea"
expect_equal "only that" "$(grep -c 'Café' <<<"$out")" 0
expect_run "what leaves the account" 1 sales -c 'SELECT * FROM mysql.user'
expect_run "our own tables" 1 sales -c 'DELETE FROM nvadmin_locks'
expect_run "a file that is no file" 1 sales -c 'LIST NOWHERE'
expect_run "nothing is locked" 0 sales -c 'LIST-LOCKS'
expect_match "nothing is locked" "$out" "nothing is locked"

# A replica: items are read, and a write says where it has to go.
as_root "SET GLOBAL read_only = 1"
expect_run "a read on a replica" 0 sales -c 'CT STOCK 10'
expect_run "a write on a replica" 1 sales -c 'PUT STOCK 10 1 Coffee'
expect_match "a write on a replica" "$out$err" "read-only"
expect_run "an account on a replica" 1 env NVADMIN_STORE_PASSWORD='a secret' "$program" --home "$home" account add OTHER \
  --datastore MYSQL --store "$address"
expect_match "an account on a replica" "$err" "this machine: the server is read-only, a replica perhaps; name the one"
as_root "SET GLOBAL read_only = 0"

# A server that is gone: one line and the exit code of a store that can't be opened.
bash "$script" kill "$server"
expect_run "no server" 4 sales -c 'CT STOCK 10'
expect_match "no server" "$err" "account SALES: the store is unavailable: no server answers at this machine"
bash "$script" resume "$server" --innodb-flush-log-at-trx-commit=1
expect_run "back again" 0 sales -c 'CT STOCK 10'
expect_match "back again" "$out" "001 Tea"

source "$(dirname "$0")/backserver/run.bash"
nvadmin user accounts bob --account '*'
run_python mariadb_test "${@:2}"
finish

# Accounts on a MariaDB server: what is checked before one is added, where its password comes from, what is refused.
source "$(dirname "$0")/common.bash"

socket=${NVADMIN_TEST_MARIADB:-}
[[ -n $socket ]] || { echo "Skipped: no MariaDB server; run the tests through ./test or ctest"; exit 0; }
as_root() { mariadb --no-defaults --default-character-set=utf8mb4 -uroot -N -S "$socket" -e "$1"; }
database=nv_e2e_$$
user=e2e_$$
remove_databases() {
  as_root "DROP DATABASE IF EXISTS $database; DROP DATABASE IF EXISTS ${database}_taken; DROP USER IF EXISTS $user@localhost"
}
at_exit=(remove_databases remove_work)
as_root "CREATE DATABASE $database CHARACTER SET latin1 COLLATE latin1_nopad_bin;
  CREATE DATABASE ${database}_taken; CREATE TABLE ${database}_taken.bills (x INT);
  CREATE USER $user@localhost IDENTIFIED BY 'päss word'; GRANT ALL ON \`${database//_/\\_}\`.* TO $user@localhost"
address() { echo "mariadb://$1@/$2?connect-timeout=1&socket=$socket"; }
add() { nvadmin account add SALES --datastore MYSQL --store "$@"; }

expect_run "a check" 0 add "$(address root "$database")" --check
expect_match "what it tells" "$out" \
  "^server +1[0-9.]+-MariaDB.*connection +.*character set +latin1, collation latin1_nopad_bin.*engine +.*InnoDB.*limits .*durability +innodb_flush_log_at_trx_commit = [0-2].*rights +GRANT ALL.*database +$database can hold an account$"
expect_run "a check adds nothing" 0 nvadmin account list
expect_equal "accounts behind a check" "$out" ""
expect_run "the database is as it was" 0 as_root "SHOW TABLES IN $database"
expect_equal "tables behind a check" "$out" ""

refused() { # WHAT EXIT-CODE MESSAGE ADDRESS
  expect_run "$1" "$2" add "$4"
  expect_match "$1" "$err" "$3"
  expect_equal "one line: $1" "$(wc -l <<<"$err")" 1
  expect_run "$1: no account" 0 nvadmin account list
  expect_equal "$1: accounts" "$out" ""
}
refused "no such database" 4 "it has no database nv_none; make it with CREATE DATABASE nv_none CHARACTER SET latin1" \
  "$(address root nv_none)"
refused "tables of others" 1 "holds tables, but isn't an account's; an account needs a database of its own" \
  "$(address root "${database}_taken")"
refused "nobody there" 4 "the store is unavailable: no server answers at 127.0.0.1:1 " "mariadb://root@127.0.0.1:1/x"
refused "no address" 4 "'sales' is no address of a database: it doesn't begin with mariadb://" "sales"
refused "a password in it" 4 "what was given is no address of a database: a password has no place in it" \
  "mariadb://root:secret@h/x"
expect_equal "the password isn't shown" "${err//secret/}" "$err"
refused "no password" 4 "it refuses user $user: the user name or the password is wrong" "$(address "$user" "$database")"
expect_run "another word" 4 nvadmin account add SALES --datastore JET --store "$(address root "$database")"
expect_match "another word" "$err" "the datastore word JET has no store at an address"

# The password from the environment, from a file, and typed: then it is kept, for this user alone.
NVADMIN_STORE_PASSWORD='päss word' expect_run "by the environment" 0 add "$(address "$user" "$database")" --check
echo 'päss word' >"$work/password"
expect_run "by a file" 0 add "$(address "$user" "$database")&password-file=$work/password" --check
add "$(address "$user" "$database")" <<<'päss word' >/dev/null
expect_run "added" 0 nvadmin tcl -c 'CREATE-FILE STOCK 2' -c 'PUT STOCK 1 1 Tea' -c 'CT STOCK 1' -c 'LIST STOCK'
expect_match "items" "$out" "001 Tea"
expect_run "listed" 0 nvadmin account list
expect_equal "listed" "$out" "SALES                MYSQL  $(address "$user" "$database")"
kept=$(grep -rlF 'päss word' "$home")
expect_equal "kept once, for nobody else" "$(wc -l <<<"$kept") $(stat -c %a "$kept")" "1 600"

as_root "ALTER USER $user@localhost IDENTIFIED BY 'new one'"
expect_run "changed on the server" 4 nvadmin tcl -c 'CT STOCK 1'
expect_match "changed on the server" "$err" "the password is wrong.*nvadmin account password"
NVADMIN_STORE_PASSWORD=other expect_run "while the environment has one" 1 nvadmin account password SALES
nvadmin account password SALES <<<'new one' >/dev/null
expect_run "changed here" 0 nvadmin tcl -c 'CT STOCK 1'

# An account is entered again under another name; a file that is there stays.
expect_run "removed" 0 nvadmin account remove SALES
expect_equal "its password goes, too" "$(grep -rlF 'new one' "$home")" ""
NVADMIN_STORE_PASSWORD='new one' expect_run "added again" 0 add "$(address "$user" "$database")"
NVADMIN_STORE_PASSWORD='new one' expect_run "its items" 0 nvadmin tcl -c 'CT STOCK 1'
expect_match "its items" "$out" "001 Tea"
finish

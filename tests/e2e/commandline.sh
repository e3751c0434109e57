# The command line: help, exit codes, the choice of an account, and ends of the output.
source "$(dirname "$0")/common.bash"
nl=$'\n'

# Help, version and wrong usage need no home.
for words in "" tcl demo account "account add" "account list" "account remove"; do
  expect_run "help of '$words'" 0 nvadmin $words --help
  expect_match "help of '$words'" "$out" "Usage: nvadmin"
done
sources=$(dirname "$0")/../..
expect_equal "version" "$("$program" --version)" \
  "nvadmin $(sed -n 's/^project(nvadmin VERSION \([0-9.]*\).*/\1/p' "$sources/CMakeLists.txt")"
for words in "" "fly" "tcl --color" "tcl -c" "account" "account add" "account add X" "account remove"; do
  expect_run "usage: '$words'" 2 nvadmin $words
done
expect_run "usage: an empty address" 2 nvadmin account add X --datastore MYSQL --store ""
[[ ! -e $home ]] || expect_equal "help and usage leave no home behind" "$(ls "$home")" ""

# No home, no account, one account, several.
expect_run "no home" 4 nvadmin tcl -c WHO
expect_match "no home" "$err" "no home at $home.*account add.*demo"
expect_run "a wrong word" 1 nvadmin account add SHOP --datastore PAPER
expect_run "no account" 4 nvadmin tcl -c WHO
expect_match "no account" "$err" "account add"
expect_run "first account" 0 nvadmin account add shop --datastore mysql
expect_run "the only account is entered" 0 nvadmin tcl -c ACCOUNT
expect_equal "the only account is entered" "$out" "SHOP"
expect_run "second account" 0 nvadmin account add BOOKS --datastore JET
expect_run "a name that is taken" 1 nvadmin account add Shop --datastore JET
expect_run "account list" 0 nvadmin account list
expect_match "account list" "$out" "^BOOKS +JET${nl}SHOP +MYSQL$"
expect_run "a setting" 0 nvadmin account set books --synchronous normal
expect_run "account list with a setting" 0 nvadmin account list
expect_match "account list with a setting" "$out" "^BOOKS +JET  synchronous NORMAL$nl"
expect_run "a setting of no account" 1 nvadmin account set FARM --synchronous FULL
expect_run "usage: a setting" 2 nvadmin account set BOOKS --synchronous OFF
expect_run "two accounts" 4 nvadmin tcl -c ACCOUNT
expect_match "two accounts" "$err" "--account.*BOOKS SHOP"
expect_run "a chosen account" 0 nvadmin --account books tcl -c ACCOUNT
expect_equal "a chosen account" "$out" "BOOKS"
expect_run "options behind the command" 0 "$program" tcl -c ACCOUNT --account SHOP --home "$home"
expect_run "an unknown account" 4 nvadmin --account FARM tcl -c ACCOUNT
expect_match "an unknown account" "$err" "FARM"
expect_run "remove" 0 nvadmin account remove books
expect_run "remove again" 1 nvadmin account remove books

# Sentences of the command line.
expect_run "made" 0 nvadmin tcl -c 'CREATE-FILE STOCK' -c 'PUT STOCK A1 1 Tea' -c '  PUT STOCK A2 1 Café  '
expect_run "refused characters" 3 nvadmin tcl -c 'PUT STOCK A3 1 złoty' -c 'COUNT STOCK'
expect_match "refused characters" "$err" "sentence 1.*U\+0142 'ł' at character 17"
expect_match "refused characters" "$out" "2"
expect_run "failed beats refused" 1 nvadmin tcl -c 'ł' -c FROBNICATE

# The trace: only when asked for, for its owner alone.
expect_run "a report on no file" 1 nvadmin --trace "$work/trace" tcl -c 'LIST NOWHERE'
expect_match "a report on no file" "$out" "Can not open file/table 'nowhere'"
expect_equal "mode of the trace" "$(stat -c %a "$work/trace")" 600
expect_match "trace lines" "$(<"$work/trace")" "(^|${nl})[0-9.]+ OOpen ERROR! 'nowhere'"
expect_run "a trace that can't be written" 4 nvadmin --trace "$work/none/trace" tcl -c WHO
expect_match "a trace that can't be written" "$err" "$work/none/trace"

# The output ends before the report does.
for number in {1..400}; do echo "PUT STOCK K$number 1 Item"; done | nvadmin tcl >/dev/null
nvadmin tcl -c 'LIST STOCK' 2>"$work/err" </dev/null | head -n 3 >/dev/null
expect_equal "a reader that went is no complaint" "$(<"$work/err")" ""
nvadmin tcl -c 'LIST STOCK' 2>"$work/err" </dev/null >/dev/full
expect_equal "exit code with a full device" $? 1
expect_match "a full device" "$(<"$work/err")" "can't write the output: No space left"
finish

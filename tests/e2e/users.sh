# The users of a home: passwords from a pipe and from a terminal that doesn't show them.
source "$(dirname "$0")/common.bash"
nl=$'\n'
nvadmin account add SHOP --datastore JET
nvadmin account add BOOKS --datastore JET

# with PASSWORD COMMAND...: the password as one line of standard input.
with() { local password=$1; shift; printf '%s' "$password" | nvadmin "$@" 2>"$work/err"; }

with $'correct horse\n' user add Anna --account shop,BOOKS
expect_equal "a user is added ($(<"$work/err"))" $? 0
with $'correct horse\r\n' user add --account '*' ben
expect_equal "all accounts ($(<"$work/err"))" $? 0
with '' user add carl --account SHOP
expect_equal "no password" $? 1
expect_match "no password" "$(<"$work/err")" "one line"
with 'pass złoty' user add carl --account SHOP
expect_equal "a character without a byte" $? 1
with 'correct horse' user add carl --account SHOP,SEA
expect_equal "an unknown account" $? 1
expect_match "an unknown account" "$(<"$work/err")" "no account SEA; .*account add"
expect_run "usage" 2 nvadmin user add carl
expect_run "other accounts" 0 nvadmin user accounts BEN --account books
expect_run "the list" 0 nvadmin user list
expect_equal "the list" "$out" "Anna                 BOOKS,SHOP${nl}ben                  BOOKS"
expect_run "removing an account" 0 nvadmin account remove BOOKS
expect_run "removing a user" 0 nvadmin user remove BEN
expect_run "removing it again" 1 nvadmin user remove ben
expect_run "the list at the end" 0 nvadmin user list
expect_equal "the list at the end" "$out" "Anna                 SHOP"

# At a terminal: asked for twice, not shown, and the echo comes back, whatever happens.
source "$(dirname "$0")/terminal.bash"
at_exit=(stop_terminal remove_work)
open_terminal 120
typed "'$program' --home '$home' user passwd anna"
see "the first question" 'New password of anna, 8 to 1024 characters:'
typed 'secret one'
see "the second question" 'The same again:'
typed 'secret two'
see "two that differ" 'differ'
new_screen
typed "'$program' --home '$home' user passwd anna"
see "the question again" 'New password'
keys C-c
see "Ctrl-C" "${nl}shell>"
typed 'echo $((6*7)) echoed'
see "the echo is back" 'echo [^n]*42 echoed'
typed "'$program' --home '$home' user passwd anna; echo code \$?"
see "the question once more" 'echoed.*New password'
typed 'secret one'
see "the second question once more" 'The same again:'
typed 'secret one'
see "a new password" 'code 0'
expect_equal "nothing secret was shown" "$(count_shown secret)" 0
finish

# Sentences from a pipe: no prompts, answers from the same input, and the order of everything.
source "$(dirname "$0")/common.bash"
nl=$'\n'
nvadmin account add SHOP --datastore MYSQL

piped() { printf "$1" | nvadmin tcl 2>&1; }

expect_equal "no prompt, no echo" "$(piped 'ACCOUNT\n\n  SYSTEM DATASTORE  \n')" "SHOP${nl}MYSQL"
expect_equal "CR LF and no last line end" "$(piped 'ACCOUNT\r\nACCOUNT')" "SHOP${nl}SHOP"
expect_equal "empty input" "$(piped '')" ""

{
  echo 'CREATE-FILE STOCK'
  for number in {1..60}; do printf 'PUT STOCK K%03d 1 Thing-%d\n' "$number" "$number"; done
} | nvadmin tcl >/dev/null
expect_equal "exit code of a pipe" $? 0

# Three pages: an answer each for the waits, the next line is a sentence again.
report=$(piped 'SORT STOCK\nx\n\n\n\nACCOUNT\n')
expect_match "pages" "$report" "Page 4 .*K060.*END of Query, 60 Items Displayed.*${nl}SHOP$"
expect_equal "items shown" "$(grep -c '^K0' <<<"$report")" 60
expect_match "q quits" "$(piped 'SORT STOCK\nq\nACCOUNT\n')" "K017 .*to Quit: ${nl}:${nl}SHOP$"
report=$(piped 'SORT STOCK\n')
expect_match "the end answers all waits" "$report" "END of Query, 60 Items Displayed"
expect_equal "no cursor control in a file" "$(tr -d '\n\40-\176' <<<"$report" | wc -c)" 0

# A kept list restricts the next sentence alone.
expect_match "a list for the next sentence" "$(piped 'SELECT STOCK WITH @ID = "K00]"\nCOUNT STOCK\nCOUNT STOCK\n')" \
  "9 item IDs.*9.*60"

# Refused lines are named where they stood, and count in the exit code.
printf 'ACCOUNT\nPUT STOCK X 1 \xc5\x82\nACCOUNT\n' | nvadmin tcl >"$work/out"
expect_equal "exit code with a refused line" $? 3
expect_match "a refused line" "$(<"$work/out")" "^SHOP${nl}U\+0142 'ł' at character 15 [^${nl}]*${nl}SHOP$"
printf 'FROB\nACCOUNT\n' | nvadmin tcl >/dev/null
expect_equal "exit code with a failed sentence" $? 1
nvadmin tcl <"$work" >/dev/null 2>"$work/err"
expect_equal "exit code when the input is a folder" $? 1
expect_match "an input that can't be read" "$(<"$work/err")" "can't read the input: Is a directory"

# -c takes the answers of page waits from the pipe, and nothing else.
expect_equal "-c with q from a pipe" "$(echo q | nvadmin tcl -c 'SORT STOCK' | grep -c '^K0')" 17
expect_equal "-c leaves sentences alone" "$(echo 'ACCOUNT' | nvadmin tcl -c 'SYSTEM DATASTORE')" "MYSQL"
finish

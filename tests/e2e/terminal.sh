# A person at a terminal: tmux is the terminal, so what is compared is what stands on the screen.
source "$(dirname "$0")/common.bash"
nl=$'\n'
source "$(dirname "$0")/terminal.bash"
at_exit=(stop_terminal remove_work)

nvadmin demo -c ACCOUNT >/dev/null 2>&1 </dev/null
open_terminal 80
typed "'$program' --home '$home' tcl"
see "the prompt stands alone on its line" "${nl}:$"

# Editing, history and letters beyond ASCII.
keys -l 'ACOUNT' && keys Left Left Left Left Left && keys -l 'C' && keys Enter
see "a line that was edited" ":ACCOUNT${nl}DEMO${nl}:$"
keys Up
see "history" "DEMO${nl}:ACCOUNT$"
keys Enter
see "a sentence from the history" "DEMO${nl}:ACCOUNT${nl}DEMO${nl}:$"
typed 'CREATE-FILE NOTES'
typed 'PUT NOTES Zoë 1 crème brûlée for 3 €'
typed 'CT NOTES Zoë'
see "letters typed and shown" ":CT NOTES Zoë${nl}.*crème brûlée for 3 €${nl}:$"
typed 'PUT NOTES A 1 złoty'
see "a character without a byte" ":PUT NOTES A 1 złoty${nl}U\+0142 'ł' at character 16[^${nl}]*${nl}(.*${nl})?:$"
typed 'CT NOTES A'
see "the refused line did nothing" ":CT NOTES A${nl}[^${nl}]*not in[^${nl}]*${nl}:$"
keys -l 'nothing of this' && keys C-c
see "Ctrl-C drops the line" ":nothing of this\^C${nl}:$"

# A report of several pages: fresh screens, one prompt after it, and the answers aren't sentences.
typed 'SORT COUNTRIES NAME'
see "the first page" '^Page 1 +SORT COUNTRIES NAME.*to Quit:$'
expect_equal "the first page has 17 items" "$(screen | grep -cE '^[A-Z]{2}  ')" 17
typed ''
see "the second page" '^Page 2 .*to Quit:$'
typed 'q'
see "quitting clears the screen and leaves one prompt" '^:$'
keys Up
see "answers are not in the history" '^:SORT COUNTRIES NAME$'
keys C-c

# Ctrl-C at a page and during a long report.
typed 'SORT COUNTRIES NAME'
see "a page" 'to Quit:$'
keys C-c
see "Ctrl-C at a page ends the report" "to Quit: \^C${nl}interrupted${nl}:$"
keys C-l
keys -l 'SELECT COUNT(*) FROM orders AS a, orders AS b, orders AS c, orders d'
see "a statement that takes hours" 'orders d$'
keys Enter
sleep 0.5
keys C-c
see "Ctrl-C during a statement" "interrupted.*${nl}:$"
typed 'ACCOUNT'
see "the session lives on" ":ACCOUNT${nl}DEMO${nl}:$"

# What an item holds can't move the cursor.
printf 'PUT NOTES B 1 x\033[2J\033[Hy\n' | nvadmin tcl >/dev/null
typed 'CT NOTES B'
see "control bytes are shown" 'x␛\[2J␛\[Hy'

# Stopped and resumed, another size, and the end.
keys -l 'ACC'
see "half a word" ':ACC$'
keys C-z
see "stopped" 'shell>$'
typed 'fg'
keys -l 'OUNT' && keys Enter
see "resumed with the line being typed" "DEMO${nl}:$"
keys C-d
see "Ctrl-D ends the session" "${nl}shell>$"
typed 'stty -a | grep -o " -\?icanon"; echo code $?'
see "the terminal is as it was" " icanon${nl}code 0"
expect_equal "mode of the history" "$(stat -c %a "$home/history")" 600

typed "clear; '$program' --home '$home' tcl"
see "the prompt" "${nl}:$"
keys Up
see "the history of the session before" ":ACCOUNT$"
keys C-c
typed 'OFF'
see "the session is over" "shell>$"

# -c at a terminal: pages wait for the person, no prompt of the program's own.
typed "clear; '$program' --home '$home' tcl -c 'SORT COUNTRIES NAME' -c ACCOUNT; echo code \$?"
see "-c pages at a terminal" '^Page 1 .*to Quit:$'
typed 'q'
see "-c goes on after a page" "^:${nl}DEMO${nl}code 0${nl}shell>$"
typed "clear; '$program' --home '$home' tcl -c 'SORT COUNTRIES NAME' -c ACCOUNT; echo code \$?"
see "-c pages" '^Page 1 .*to Quit:$'
keys C-c
see "Ctrl-C ends all of -c" "interrupted${nl}code 1${nl}shell>$"
typed "clear; '$program' --home '$home' tcl -c 'SORT COUNTRIES NAME' > '$work/file'; echo code \$?"
see "-c into a file waits for nobody" "code 0"

# A terminal that is closed ends the program.
typed "clear; '$program' --home '$home' tcl"
see "the last prompt" "${nl}:$"
stop_terminal
left() { ps -eo args | awk -v p="$program --home $home tcl" 'index($0, p) == 1'; }
for ((tries = 0; tries < 100; ++tries)); do [[ -z $(left) ]] && break; sleep 0.05; done
expect_equal "programs left behind" "$(left)" ""
finish

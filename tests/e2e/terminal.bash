# Sourced behind common.bash: tmux as the terminal of a person, so that what is compared is what stands on the screen.
# A shell runs in it, so that a program's end and what it leaves of the terminal show.

export TERM=xterm
terminal=(tmux -u -S "$work/tmux" -f /dev/null)

stop_terminal() { "${terminal[@]}" kill-server 2>/dev/null; }
# open_terminal COLUMNS
open_terminal() {
  "${terminal[@]}" new-session -d -x "$1" -y 24 "PS1='shell> ' bash --norc --noprofile -i"
  see "the shell" 'shell>'
}
keys() { "${terminal[@]}" send-keys "$@"; }
typed() { keys -l -- "$1" && keys Enter; }
# The screen without the blanks and blank lines at its ends.
screen() { "${terminal[@]}" capture-pane -p | sed -e 's/ *$//' | sed -e ':a' -e '/^\n*$/{$d;N;ba' -e '}'; }
# see WHAT REGEX: waits until the screen matches.
see() {
  local tries shown
  for ((tries = 0; tries < 200; ++tries)); do
    shown=$(screen)
    [[ $shown =~ $2 ]] && return
    sleep 0.05
  done
  expect_match "$1" "$shown" "$2"
}
# Clears the screen of the shell, and waits for that: the next `see` mustn't find what the program before has shown.
new_screen() {
  typed 'clear; echo $((6*6)) is new'
  see "a new screen" '36 is new'
}
# count_shown REGEX: in how many lines of the screen and of what went up from it.
count_shown() { "${terminal[@]}" capture-pane -p -S - | grep -cE "$1"; }

# Several programs on one home at once: they write to it and wait for one another.
source "$(dirname "$0")/common.bash"

nvadmin account add SHOP1 --datastore MYSQL

# Each writes its own items and all write the same one; no write is lost, refused or torn.
nvadmin --account SHOP1 tcl -c 'CREATE-FILE STOCK' >/dev/null </dev/null
writers=()
for writer in 1 2 3; do
  for number in {1..100}; do
    printf 'PUT STOCK W%d-%d 1 %d\nPUT STOCK SAME 1 %d%d%d%d\n' $writer $number $number $writer $writer $writer $writer
  done | nvadmin --account SHOP1 tcl >"$work/writer$writer" 2>&1 &
  writers+=($!)
done
for writer in "${writers[@]}"; do
  wait "$writer"
  expect_equal "a writer's exit code ($(sort "$work"/writer? | uniq -c | sort -rn | head -n 5))" $? 0
done
expect_match "all items" "$(nvadmin --account SHOP1 tcl -c 'COUNT STOCK' </dev/null)" "301"
expect_match "the item that all wrote" "$(nvadmin --account SHOP1 tcl -c 'CT STOCK SAME' </dev/null)" "(1111|2222|3333)"

# A session sees what another program wrote while it was open.
mkfifo "$work/in"
nvadmin --account SHOP1 tcl <"$work/in" >"$work/out" 2>&1 &
reader=$!
exec 5>"$work/in"
echo 'CT STOCK W1-1' >&5
for ((tries = 0; tries < 200; ++tries)); do [[ -s $work/out ]] && break; sleep 0.05; done
nvadmin --account SHOP1 tcl -c 'PUT STOCK W1-1 1 changed' -c 'CREATE-FILE LATER' >/dev/null </dev/null
printf 'CT STOCK W1-1\nCOUNT LATER\n' >&5
exec 5>&-
wait "$reader"
expect_equal "the reader's exit code ($(<"$work/out"))" $? 0
expect_match "what the reader saw" "$(<"$work/out")" "1.*changed"
finish

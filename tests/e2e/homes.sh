# Homes that can't be used: each is refused with the folder or file and the way out, and nothing is harmed.
source "$(dirname "$0")/common.bash"

expect_refusal() { # WHAT REGEX: of the run before
  expect_equal "$1: one line" "$(wc -l <<<"$err")" 1
  expect_match "$1" "$err" "$2"
  expect_equal "$1: no output" "$out" ""
}

# As an ordinary user: for root nothing is read-only.
ordinary() { "$@"; }
if ((EUID == 0)); then
  cp "$program" "$work/nvadmin" && program=$work/nvadmin
  chmod 755 "$work" "$work/nvadmin"
  ordinary() { setpriv --reuid=65534 --regid=65534 --clear-groups env HOME=/nonexistent "$@"; }
fi

expect_run "missing" 4 nvadmin tcl -c WHO
expect_refusal "missing" "$home"
expect_run "a file" 4 "$program" --home "$program" tcl -c WHO
expect_refusal "a file" "$program"
mkdir "$work/other" && echo hello >"$work/other/readme"
expect_run "a folder of something else" 4 "$program" --home "$work/other" tcl -c WHO
expect_refusal "a folder of something else" "$work/other"
expect_equal "a folder of something else is left alone" "$(ls -A "$work/other")" "readme"
expect_run "a place where nobody can make a home" 4 ordinary "$program" --home /nonexistent/home demo -c WHO
expect_refusal "a place where nobody can make a home" "/nonexistent[^ ]* can't be made \(Permission denied\); choose another"

# A folder that is open to others: all that is made in it is not, while a session is in it too.
umask 022
mkdir -m 755 "$home"
nvadmin account add SHOP --datastore MYSQL
nvadmin user add ann --account SHOP <<<"pass word" >/dev/null
coproc tcl { exec "$program" --home "$home" tcl; }
printf '%s\n' 'CREATE-FILE STOCK' 'PUT STOCK K1 1 Tea' >&"${tcl[1]}"
while read -r line <&"${tcl[0]}" && [[ $line != *written ]]; do :; done
expect_equal "files for others" "$(find "$home" -mindepth 1 ! -perm 600 ! \( -type d -perm 700 \))" ""
expect_equal "files beside the databases" "$(cd "$home" && ls locks.sqlite-* accounts | tr '\n' ' ')" \
  "locks.sqlite-gate locks.sqlite-shm locks.sqlite-wal  accounts: SHOP.sqlite SHOP.sqlite-shm SHOP.sqlite-wal "
pid=$tcl_PID
exec {tcl[1]}>&-
wait "$pid"

# Not ours to write: the whole home, then the account's database alone.
chmod -R a-w,a+rX "$home"
expect_run "read-only" 4 ordinary "$program" --home "$home" tcl -c 'CT STOCK K1'
expect_refusal "read-only" "$home can't be used \(Permission denied\); give this user all rights for the folder"
chmod -R u+w "$home"
ordinary_home=$work/theirs
cp -r "$home" "$ordinary_home"
chmod -R a+rwX "$ordinary_home" && chmod a-w "$ordinary_home"/accounts "$ordinary_home"/accounts/*
expect_run "read-only account" 4 ordinary "$program" --home "$ordinary_home" tcl -c 'CT STOCK K1'
expect_refusal "read-only account" "$ordinary_home/accounts/SHOP.sqlite is read only"

# A full disk: what can't be written is refused by name, and what was told as written is there.
cp -r "$home" "$work/before"
(
  ulimit -f 400
  for number in {1..400}; do printf 'PUT STOCK B%d 1 %01000d\n' "$number" 7; done | nvadmin tcl >"$work/out" 2>&1
)
written=$(grep -c "^attribute 1 of item 'B[0-9]*' written$" "$work/out")
refused=$(grep -c "SHOP.sqlite.*disk is full" "$work/out")
((written > 0 && refused > 0 && written + refused == 400)) ||
  expect_equal "a full disk: $written written, $refused refused" "$(cut -c 1-200 "$work/out" | head -n 50)" "400 answers"
expect_run "after a full disk" 0 nvadmin tcl -c 'CT STOCK K1' -c 'COUNT STOCK' -c "PUT STOCK C1 1 x"
expect_match "after a full disk" "$out" "Tea.*$((written + 1)) items counted.*written"

# Damage is told with the file's name.
for file in catalogue.sqlite accounts/SHOP.sqlite; do
  rm -rf "$home" && cp -r "$work/before" "$home"
  rm -f "$home/$file-wal" "$home/$file-shm"
  head -c 8192 /dev/urandom | dd of="$home/$file" bs=1 conv=notrunc status=none
  expect_run "damaged $file" 4 nvadmin tcl -c 'CT STOCK K1'
  expect_refusal "damaged $file" "$file"
done
expect_run "damage elsewhere" 0 "$program" --home "$work/before" tcl -c 'CT STOCK K1'
finish

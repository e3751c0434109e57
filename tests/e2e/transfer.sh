# Transfer files: a load that is killed in the middle, and one that is done again.
source "$(dirname "$0")/common.bash"
source "$(dirname "$0")/backserver/run.bash"
for account in BROKEN WHOLE; do
  nvadmin account add $account --datastore MSSQL
  nvadmin account add $account.MV --datastore MVSTORE
done
nvadmin user accounts bob --account '*'
run_python transfer_test "${@:2}"
finish

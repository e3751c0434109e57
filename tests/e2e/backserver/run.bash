# Sourced behind common.bash by the tests of the servers: accounts and users for backserver/*_test.py and
# web/*_test.py.
# run_python MODULE... [UNITTEST-ARGUMENT...]
sources=$(readlink -f "$(dirname "$0")/../..")

nvadmin account add SHOP --datastore MYSQL
nvadmin account add NATIVE --datastore MVSTORE
nvadmin demo -c WHO >/dev/null 2>&1
for entry in ann:DEMO bob:SHOP,NATIVE; do
  nvadmin user add "${entry%%:*}" --account "${entry#*:}" <<<"pass word" >/dev/null
  expect_equal "exit code of user add $entry" $? 0
done

run_python() {
  NVADMIN=$program NVADMIN_HOME=$home PYTHONPATH=$sources/client:$sources/tests/e2e/backserver:$sources/tests/e2e/web \
    python3 -B -m unittest "$@" 2>&1
  expect_equal "exit code of the Python tests" $? 0
}

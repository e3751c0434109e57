# The web server without a browser: log-ins, whom it trusts, sessions that lose their page, limits, ends, TLS.
source "$(dirname "$0")/common.bash"
source "$(dirname "$0")/backserver/run.bash"
run_python site_test sessions_test "${@:2}"
finish

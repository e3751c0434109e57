# Sessions of the web server without a browser: that lose their page, limits, ends, TLS.
source "$(dirname "$0")/common.bash"
source "$(dirname "$0")/backserver/run.bash"
run_python sessions_test "${@:2}"
finish

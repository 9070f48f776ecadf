# shellcheck shell=bash disable=SC2154
# Sourced by package_test: what systemd says of a start is true.

echo "== start and restart"
for _ in {1..10}; do
  start
  check "started, and does not answer" call "$request" >/dev/null
done
inside sh -c "kill -INT $(service_pid)"
check "a service that ended with status 0 stays down" answers

echo "== starts that fail"
inside systemctl stop quorvelserver
# No function: its process is the one to end.
nsenter --target "$leader" --net python3 -m http.server --bind 127.0.0.1 --directory "$work/debs" "$port" >/dev/null 2>&1 &
other=$!
until in_network bash -c "exec 3<>/dev/tcp/127.0.0.1/$port" 2>/dev/null; do sleep 0.1; done
check_not "started, although another program has the port" quietly start
check_not "active, although another program has the port" inside systemctl is-active --quiet quorvelserver
kill $other
wait $other || true
check "does not start once the port is free" answers
inside systemctl stop quorvelserver
mute=$root/etc/systemd/system/quorvelserver.service.d
install -d "$mute"
printf '[Service]\nTimeoutStartSec=2\nTimeoutStopSec=1\nExecStart=\nExecStart=/bin/sh -c "sleep 60 &"\n' >"$mute/mute.conf"
inside systemctl daemon-reload
check_not "started, although it never listens" quietly start
rm -r "$mute"
inside systemctl daemon-reload
start

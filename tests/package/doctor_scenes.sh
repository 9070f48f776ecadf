# shellcheck shell=bash disable=SC2154
# Sourced by package_test: quorvel-doctor under a real systemd.

echo "== doctor"
doctor() { inside quorvel-doctor "$@" >"$work/doctor" 2>&1; }
finds() { grep -q -- "$1" "$work/doctor"; }
ini=$root$program/bin/quorvel_service.ini
printf '[ACCESS]\nlisten=loopback\n' >>"$ini"
start
check "doctor complains of a good installation: $(doctor || cat "$work/doctor")" doctor
check "a plain user's doctor complains" inside setpriv --reuid=nobody --regid=nogroup --clear-groups quorvel-doctor >/dev/null
check "doctor left something behind" [ -z "$(inside find $program -name __pycache__)" ]

# Neither folder is seen in the unit's sandbox.
for folder in /home/maker /var/tmp; do
  install -D -m 644 "$root$program/bin/libquorveldemo.so" "$root$folder/libreader.so"
done
cp "$ini" "$work/ini"
sed -i 's,^lib1=.*,&\nlib2=/home/maker/libreader.so\nlib3=/var/tmp/libreader.so,' "$ini"
check_not "doctor finds no fault before the restart" doctor
check "no warning of a file changed since the start" finds 'changed after the service started'
start
check_not "the running service's doctor finds no fault" doctor
check "no word on the home directory: $(cat "$work/doctor")" finds 'sees no home directories'
inside systemctl stop quorvelserver
check_not "doctor finds no fault when the service is stopped" doctor
check "not tried in the sandbox: $(cat "$work/doctor")" finds 'lib1=.* can be loaded (as the service, in its sandbox)'
check "no fault in the sandbox: $(cat "$work/doctor")" finds 'lib3=.* can not be loaded (as the service, in its sandbox)'
cp "$work/ini" "$ini"
inside rm -r /home/maker /var/tmp/libreader.so
start

# shellcheck shell=bash disable=SC2086,SC2154
# Sourced by package_test: which certificates quorvel-cert --trust accepts, and what is left of
# those that it replaced. Java's store is played by a hook that keeps what it is told.

java=/var/tmp/java
cat >"$root/etc/ca-certificates/update.d/java" <<TEXT
#!/bin/sh
mkdir -p $java
while read -r line; do
  case \$line in
    +*) cp "\${line#+}" $java/ ;;
    -*) rm "$java/\${line##*/}" ;;
  esac
done
TEXT
chmod +x "$root/etc/ca-certificates/update.d/java"

trusted() { inside openssl verify -CApath /etc/ssl/certs -no-CAfile -no-CAstore "$1" >/dev/null 2>&1; }
# No store holds a root of the service's, and no link leads nowhere.
nowhere_trusted() {
  gone /etc/ssl/certs/quorvelserver.pem && gone $system_root && gone $java/quorvelserver.pem &&
    [[ -z $(inside find /etc/ssl/certs -xtype l) ]] && ! grep -qFf <(sed -n 2p "$work/last_root") "$root/etc/ssl/certs/ca-certificates.crt"
}
root_of() { awk '/BEGIN/ { text = "" } { text = text $0 "\n" } END { printf "%s", text }' "$root$tls/$certificate"; }

echo "== what is not trusted"
check_not "the service's user replaces the link to the certificate" quietly as_user quorvelserver ln -sfT /etc/shadow $home/$certificate
check_not "the service's user renames the link" quietly as_user quorvelserver mv $home/$certificate $home/other
check_not "the service's user adds to root's folder" quietly as_user quorvelserver touch $tls/other
make_root() { inside openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout /dev/null -subj /CN=planted -out "$1" "${@:2}" 2>/dev/null; }
all=ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff
three="permitted;DNS:localhost,permitted;IP:127.0.0.1/255.255.255.255,permitted;IP:::1/$all"
# refused WHY: what stands in the service's folder as the certificate is not trusted, for this reason.
refused() {
  inside touch $home/$key
  check_not "trusted: $1" quietly inside quorvel-cert --trust --dir $home
  check "not refused for the right reason ($1): $(cat "$work/log")" grep -q -- "$1" "$work/log"
  check "something entered the system's store" gone $system_root
  inside rm -f $home/$certificate
}
inside rm $home/$certificate $home/$key
as_user quorvelserver ln -s /etc/shadow $home/$certificate
refused "a link is not followed"
make_root /var/tmp/planted
as_user quorvelserver cp /var/tmp/planted $home/$certificate
refused "not a plain file of root's"
inside ln /var/tmp/planted $home/$certificate
refused "not a plain file of root's"
as_user quorvelserver mkfifo $home/$certificate
refused "not a plain file of root's"
inside cp /var/tmp/planted $home/$certificate
refused "not limited to localhost"
for constraints in "critical,$three,permitted;DNS:bank.example" "$three" "critical,${three%,permitted;IP:::1*}"; do
  make_root $home/$certificate -addext "nameConstraints=$constraints"
  refused "not limited to localhost"
done
inside install -d -o quorvelserver /var/tmp/own
inside cp $tls/$certificate $tls/$key /var/tmp/own
check_not "trusted from a folder that the service's user can change" quietly inside quorvel-cert --trust --dir /var/tmp/own
check "something entered the system's store" gone $system_root

echo "== an upgrade meets planted files"
inside rm -f $home/$key
as_user quorvelserver ln -s /etc/shadow $home/$certificate
as_user quorvelserver touch $home/$key
inside mv $tls $tls.kept
inside dpkg -i "$work/debs/next.deb" >"$work/log" 2>&1
check "the planted files are not named" [ "$(grep -c 'no plain file of root' "$work/log")" = 2 ]
check "a planted file entered root's folder" inside rmdir $tls
inside mv $tls.kept $tls

echo "== trust, renewed trust"
root_of >"$work/first_root"
inside quorvel-cert --trust >/dev/null
check "the planted links stay" [ "$(inside readlink $home/$certificate $home/$key | xargs)" = "$tls/$certificate $tls/$key" ]
check "not trusted" trusted $tls/$certificate
check "Java was not told" cmp -s "$work/first_root" "$root$java/quorvelserver.pem"
(umask 077; inside quorvel-cert --force --trust >/dev/null)
root_of >"$work/last_root"
check_not "the pair was not replaced" cmp -s "$work/first_root" "$work/last_root"
check "the new root is not trusted" trusted $tls/$certificate
check "Java keeps the old root" cmp -s "$work/last_root" "$root$java/quorvelserver.pem"
inside openssl x509 -in /dev/stdin -out /var/tmp/first <"$work/first_root"
check_not "the old root is trusted" trusted /var/tmp/first
check "others can not read the root" [ "$(inside stat -c %a $system_root)" = 644 ]
inside quorvel-cert --trust --all-users >/dev/null

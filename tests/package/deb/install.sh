#!/bin/sh
# install.sh DEBS ROOT: dpkg installs the packages into an empty root, with the
# libraries of other packages taken as installed. Works for every user.
set -eu
debs=$1
root=$2
# dpkg insists on finding its helpers.
PATH=$PATH:/usr/sbin:/sbin
export PATH

rm -rf "$root"
mkdir -p "$root/var/lib/dpkg/info" "$root/var/lib/dpkg/updates" "$root/var/lib/dpkg/triggers"
# Of this machine's packages, those that ours depend on: so dpkg compares versions.
architecture=$(dpkg --print-architecture)
for package in libc6 libgcc-s1 libstdc++6; do
  dpkg-query -s "$package:$architecture" | sed '/^Conffiles:/,/^[^ ]/{/^Conffiles:/d;/^ /d;}'
  echo
  : >"$root/var/lib/dpkg/info/$package:$architecture.list"
done >"$root/var/lib/dpkg/status"

install_debs() {
  dpkg --root="$root" --log="$root/dpkg.log" --force-not-root --force-script-chrootless "$@"
}
# Alone, these are not configured: each wants the library of its own version.
if install_debs -i "$debs/libmorva-dev"_*.deb "$debs/morva-tools"_*.deb >"$root/alone" 2>&1 ||
    [ "$(grep -c 'depends on libmorva1 (= ' "$root/alone")" -ne 2 ]; then
  echo "the packages were not refused for want of libmorva1:" >&2
  cat "$root/alone" >&2
  exit 1
fi
install_debs -i "$debs/libmorva1"_*.deb
install_debs --configure -a
[ "$(dpkg --root="$root" -l libmorva1 libmorva-dev morva-tools | grep -c '^ii ')" -eq 3 ]
dpkg --root="$root" --verify libmorva1 libmorva-dev morva-tools

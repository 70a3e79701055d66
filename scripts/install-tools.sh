#!/bin/sh
# Installs the Debian packages that the named jobs need and that are missing:
#   install-tools.sh build test demo
# As root or through sudo; otherwise it names the packages and stops.
set -eu

wanted=
for job in "$@"; do
  case $job in
    build) wanted="$wanted cmake make g++" ;;
    test)
      wanted="$wanted libgtest-dev libgmock-dev binutils clang abigail-tools"
      wanted="$wanted dpkg-dev file lintian pkg-config doxygen gdb groff-base python3"
      ;;
    coverage) wanted="$wanted gcovr python3" ;;
    package) wanted="$wanted dpkg-dev file" ;;
    reference) wanted="$wanted doxygen" ;;
    bench)
      wanted="$wanted libboost1.81-dev libabsl-dev robin-map-dev libtsl-ordered-map-dev"
      wanted="$wanted libglib2.0-dev uthash-dev libjudy-dev pkg-config python3"
      ;;
    fuzz) wanted="$wanted clang libclang-rt-dev libgtest-dev libgmock-dev" ;;
    lint) wanted="$wanted clang clang-tidy" ;;
    demo) wanted="$wanted tzdata gawk" ;;
    *)
      echo "install-tools.sh: no such job: $job" >&2
      exit 2
      ;;
  esac
done

missing=
for package in $wanted; do
  status=$(dpkg-query -W -f '${Status}' "$package" 2>/dev/null || true)
  [ "$status" = "install ok installed" ] || missing="$missing $package"
done
[ -n "$missing" ] || exit 0

if [ "$(id -u)" -eq 0 ]; then
  as_root=
elif command -v sudo >/dev/null 2>&1 && { sudo -n true 2>/dev/null || [ -t 0 ]; }; then
  as_root=sudo
else
  echo "Please install these packages first:$missing" >&2
  echo "For example: su -c 'apt-get install$missing'" >&2
  exit 1
fi

echo "Installing:$missing"
export DEBIAN_FRONTEND=noninteractive
$as_root apt-get update -qq
# The word splitting is meant: one argument per package.
$as_root apt-get install -y -qq --no-install-recommends $missing >/dev/null

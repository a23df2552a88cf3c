#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need, when missing:
# those listed one per line in scripts/packages/*.txt.  As root it uses
# apt-get; otherwise it names what is missing and fails.
set -euo pipefail
cd "$(dirname "$0")"

mapfile -t packages < <(cat packages/*.txt | sed 's/#.*//' | tr -s ' \t' '\n' | grep -v '^$' | sort -u)

missing=()
for package in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
        missing+=("$package")
    fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

if [ "$(id -u)" -ne 0 ]; then
    echo "missing Debian packages: ${missing[*]} (run as root to install them)" >&2
    exit 1
fi
echo "installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
# Servers the tests use (nginx, syslog) are started by the tests themselves
# on their own ports: keep the packages from starting system instances.
if [ ! -e /usr/sbin/policy-rc.d ]; then
    printf '#!/bin/sh\nexit 101\n' > /usr/sbin/policy-rc.d
    chmod +x /usr/sbin/policy-rc.d
    trap 'rm -f /usr/sbin/policy-rc.d' EXIT
fi
apt-get update -qq
apt-get install -y -qq --no-install-recommends "${missing[@]}"

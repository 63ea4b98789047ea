#!/usr/bin/env bash
# Builds the Debian package of vtagent from a Linux build and prints its path:
#   scripts/build_deb.sh [BUILD_DIR] [OUT_DIR]      (defaults: build/linux, build)
# vtagent and vtreg go to /usr/sbin, the systemd unit to /lib/systemd/system, the default
# configuration (imported on the first installation only), MIB files and SQL schemas to
# /usr/share/vtagent, a logrotate file to /etc/logrotate.d, man pages vtagent(8) and vtreg(8).
set -euo pipefail
cd "$(dirname "$0")/.."
ROOT=$(pwd)
B=${1:-$ROOT/build/linux}
OUT=${2:-$ROOT/build}
if [ ! -x "$B/vtagent" ] || [ ! -x "$B/vtreg" ]; then
  cmake -S "$ROOT" -B "$B" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
  cmake --build "$B" --target vtagent vtreg >/dev/null
fi
VERSION=$(sed -n 's/^project(vtagent VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
ARCH=$(dpkg --print-architecture)
WORK=$(mktemp -d)
trap 'rm -rf "$WORK"' EXIT
R=$WORK/root

install -d "$R/usr/sbin" "$R/usr/share/vtagent" "$R/usr/share/man/man8" \
  "$R/usr/share/doc/vtagent" "$R/lib/systemd/system" "$R/etc/logrotate.d" "$R/DEBIAN"
for program in vtagent vtreg; do
  install -m 755 "$B/$program" "$R/usr/sbin/$program"
  strip --strip-unneeded --remove-section=.comment --remove-section=.note "$R/usr/sbin/$program"
done
install -m 644 config/vtagent_default.reg "$R/usr/share/vtagent/"
cp -r config/mibs config/sql "$R/usr/share/vtagent/"
chmod -R u=rwX,go=rX "$R/usr/share/vtagent"
install -m 644 config/debian/logrotate "$R/etc/logrotate.d/vtagent"
install -m 644 config/debian/copyright "$R/usr/share/doc/vtagent/copyright"
for page in vtagent vtreg; do
  gzip -9n <"docs/man/$page.8" >"$R/usr/share/man/man8/$page.8.gz"
done
printf 'vtagent (%s) unstable; urgency=medium\n\n  * Built from the vtagent tree.\n\n -- vtagent developers <vtagent@example.org>  %s\n' \
  "$VERSION" "$(date -R -d @"${SOURCE_DATE_EPOCH:-$(git log -1 --format=%ct 2>/dev/null || date +%s)}")" |
  gzip -9n >"$R/usr/share/doc/vtagent/changelog.gz"
# The unit the agent's own "-i" writes, for the installed paths.
cat >"$R/lib/systemd/system/QuilletVantoreAgent.service" <<UNIT
[Unit]
Description=QuilletVantoreAgent
After=network-online.target
Wants=network-online.target

[Service]
Type=notify
ExecStart=/usr/sbin/vtagent
Restart=on-failure
WorkingDirectory=/var/lib/vtagent
StateDirectory=vtagent
Environment="VTAGENT_REGISTRY=/var/lib/vtagent/registry.db"

[Install]
WantedBy=multi-user.target
UNIT
chmod 644 "$R/lib/systemd/system/QuilletVantoreAgent.service"

# Depends from the libraries the programs are linked with.
mkdir -p "$WORK/debian"
printf 'Source: vtagent\n\nPackage: vtagent\nArchitecture: any\n' >"$WORK/debian/control"
DEPENDS=$(cd "$WORK" && dpkg-shlibdeps -O "$R/usr/sbin/vtagent" "$R/usr/sbin/vtreg" 2>/dev/null |
  sed -n 's/^shlibs:Depends=//p')
SIZE=$(du -sk --exclude=DEBIAN "$R" | cut -f1)
sed -e "s/@VERSION@/$VERSION/" -e "s/@ARCH@/$ARCH/" -e "s/@SIZE@/$SIZE/" \
  -e "s/@DEPENDS@/$DEPENDS/" config/debian/control.in >"$R/DEBIAN/control"
echo /etc/logrotate.d/vtagent >"$R/DEBIAN/conffiles"
for script in postinst prerm postrm; do install -m 755 "config/debian/$script" "$R/DEBIAN/"; done
(cd "$R" && find usr lib etc -type f -exec md5sum {} + | sort -k2 >DEBIAN/md5sums)
chmod 644 "$R/DEBIAN/control" "$R/DEBIAN/conffiles" "$R/DEBIAN/md5sums"
mkdir -p "$OUT"
DEB=$OUT/vtagent_${VERSION}_${ARCH}.deb
dpkg-deb --root-owner-group -Zxz --build "$R" "$DEB" >/dev/null
echo "$DEB"

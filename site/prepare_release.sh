#!/usr/bin/env bash
# Writes the loopback site's sample release with the build's release maker: the release tree in
# the file share's data root (build/site/share/data/release) and the dies' emulator builds
# (build/site/icd_emulator), where build/site/site.ini looks for them. An earlier release is
# replaced. By default a small, quick selection: the last die of each ready family (a family whose
# last die fails ends a regression), the die whose emulator disagrees with the programmer, and one
# die of the last family.
#
#   site/prepare_release.sh [--all] [--sofs N] [--if-missing] [BUILD_DIR]
#
# BUILD_DIR defaults to ./build; --if-missing keeps a release that is already there.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="$root/build"
selection=(--dies C5D4,D5D2,D5D5,KS50)
sofs=2
if_missing=no
while [ $# -gt 0 ]; do
  case "$1" in
    --all) selection=() ;;
    --sofs) sofs="$2"; shift ;;
    --if-missing) if_missing=yes ;;
    -h|--help) sed -n '2,10p' "$0"; exit 0 ;;
    *) build="$1" ;;
  esac
  shift
done
site="$build/site"
release="$site/share/data/release"
if [ "$if_missing" = yes ] && [ -f "$release/RELEASE.txt" ]; then
  exit 0
fi
rm -rf "$release" "$site/icd_emulator"
"$build/bin/pgm_release_maker" --out "$release" --emulator-root "$site/icd_emulator" --sofs "$sofs" \
  "${selection[@]}"
echo "sample release: $release"

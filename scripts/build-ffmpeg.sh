#!/usr/bin/env bash
# Builds the FFmpeg generation that recording needs (libavcodec 58, libavformat 58,
# libavutil 56), once, into natives/:
#
#   natives/x64/lib{avutil.so.56,avcodec.so.58,avformat.so.58}   where the addon looks
#   natives/include/                                             headers to build against
#   natives/recipe.sha256                                        what they were built by
#
# The patches in scripts/ffmpeg-patches, each with its reason at its top, go onto the source. A
# change of a patch or of this script makes the next set-up build anew.
#
# No current distribution carries this generation, so it comes from the pinned source
# archive, through the Debian mirror that this machine is configured for.
#
# With --check, only tells by its exit code whether the result is in place already.
# OSTREL_FFMPEG_TARBALL=FILE names a local copy of the archive instead.
set -euo pipefail

readonly version=4.3.7
readonly archive=ffmpeg_$version.orig.tar.xz
readonly sha256=177d074943251bec33e1f9bc5979378ff5771882482ba9b3aee2cb18dd400554
readonly libraries=(libavutil.so.56 libavcodec.so.58 libavformat.so.58)
readonly root=$(cd "$(dirname "$0")/.." && pwd)
readonly natives=$root/natives
readonly patches=$root/scripts/ffmpeg-patches
readonly work=$root/build/ffmpeg
readonly log=$work/build.log
readonly local_copy_hint="set OSTREL_FFMPEG_TARBALL to a local copy of it"

fail() {
  printf 'FFmpeg: %s\n' "$*" >&2
  exit 1
}

recipe() {
  cat "$root/scripts/build-ffmpeg.sh" "$patches"/*.patch | sha256sum | cut -d ' ' -f 1
}

stands() {
  local library
  [ "$(cat "$natives/recipe.sha256" 2>/dev/null)" = "$(recipe)" ] || return 1
  for library in "${libraries[@]}"; do
    [ -f "$natives/x64/$library" ] || return 1
  done
  grep -qs "\"$version\"" "$natives/include/libavutil/ffversion.h"
}

find_repository() {
  apt-get indextargets --format '$(REPO_URI)' \
    'Created-By: Packages' 'Codename: bookworm' 'Component: main' | head -n 1
}

fetch() {
  local helper=/usr/lib/apt/apt-helper repository
  [ -x "$helper" ] || fail "apt is not here to fetch $archive; $local_copy_hint."
  repository=$(find_repository)
  if [ -z "$repository" ] && [ "$(id -u)" = 0 ]; then
    # Images for containers come without package lists.
    apt-get update >>"$log" 2>&1 || true
    repository=$(find_repository)
  fi
  [ -n "$repository" ] ||
    fail "$archive has no source (no Debian 12 package lists); run 'apt-get update' as root, or $local_copy_hint."
  "$helper" download-file "${repository%/}/pool/main/f/ffmpeg/$archive" "$work/$archive" "SHA256:$sha256" \
    >>"$log" 2>&1 || fail "$archive could not be fetched; check the network, or $local_copy_hint."
}

if [ "${1:-}" = --check ]; then
  stands
  exit
fi

mkdir -p "$work"
: >"$log"
tarball=${OSTREL_FFMPEG_TARBALL:-$work/$archive}
if [ -z "${OSTREL_FFMPEG_TARBALL:-}" ] && ! [ -f "$tarball" ]; then
  fetch
fi
if ! printf '%s  %s\n' "$sha256" "$tarball" | sha256sum --check --status 2>/dev/null; then
  [ -z "${OSTREL_FFMPEG_TARBALL:-}" ] ||
    fail "$tarball is no copy of $archive (missing, or its SHA-256 differs); OSTREL_FFMPEG_TARBALL must name one."
  rm -f "$tarball"
  fail "$archive arrived damaged and was removed."
fi

rm -rf "$work/source" "$work/install"
mkdir -p "$work/source"
tar -xJf "$tarball" -C "$work/source" --strip-components=1
for change in "$patches"/*.patch; do
  patch --directory="$work/source" --strip=1 --forward --fuzz=0 --input="$change" >>"$log" 2>&1 ||
    fail "$(basename "$change") does not apply; the last words stand in $log."
done

# The libraries carry their configure line, so the install prefix is the default one and
# not a path of this machine: the bytes are the same wherever the project lies.
cd "$work/source"
{
  ./configure \
    --enable-gpl --enable-shared --disable-static --enable-pic --disable-autodetect \
    --disable-everything --disable-programs --disable-doc --disable-debug \
    --disable-avdevice --disable-avfilter --disable-swscale --disable-swresample \
    --disable-postproc --disable-network \
    --enable-libx264 --enable-v4l2-m2m --enable-libdrm \
    --enable-vaapi --enable-ffnvcodec --enable-nvenc \
    --enable-encoder=libx264,h264_v4l2m2m,h264_vaapi,h264_nvenc \
    --enable-muxer=mp4 --enable-protocol=file &&
    make -j"$(nproc)" &&
    make install DESTDIR="$work/install"
} >>"$log" 2>&1 || fail "the build stopped; its last words stand in $log."

# The libraries find each other beside themselves, wherever the folder is moved to.
# Everything is laid out in a staging folder first: an interrupted run leaves no half set.
staging=$work/staging
rm -rf "$staging"
mkdir -p "$staging/x64"
for library in "${libraries[@]}"; do
  cp -L "$work/install/usr/local/lib/$library" "$staging/x64/$library"
  strip --strip-unneeded "$staging/x64/$library"
  patchelf --set-rpath '$ORIGIN' "$staging/x64/$library"
done
cp -r "$work/install/usr/local/include" "$staging/include"

# Without its recipe an interrupted exchange counts as not built.
rm -f "$natives/recipe.sha256"
mkdir -p "$natives/x64"
mv "$staging"/x64/*.so.* "$natives/x64/"
rm -rf "$natives/include"
mv "$staging/include" "$natives/include"
recipe >"$natives/recipe.sha256"
rm -rf "$work/source" "$work/install" "$staging"

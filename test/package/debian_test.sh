#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The Debian packages, by lintian, and in a bare root: installed by apt with and without the AAC decoder, used as a program, from
# Python and from C, and removed. Needs root and a Debian archive; otherwise 77 (skipped).
#
#   debian_test.sh SOURCE-FOLDER
set -euo pipefail
source=$1
uri=$(apt-get indextargets --format '$(REPO_URI)|$(RELEASE)|$(COMPONENT)|$(ORIGIN)' 2>/dev/null | awk -F'|' '$3=="main" && $4=="Debian" {print $1 "|" $2; exit}')
[ "$(id -u)" = 0 ] && [ -n "$uri" ] || exit 77
cd "$source"
scripts/debian-packages >/dev/null
lintian --fail-on error --allow-root build/debian/*.deb

tmp=$(mktemp -d)
cleanup() { umount "$tmp"/root/{proc,dev} 2>/dev/null || true; rm -rf --one-file-system "$tmp"; }
trap cleanup EXIT
root=$tmp/root
debootstrap --variant=minbase "${uri#*|}" "$root" "${uri%|*}" >"$tmp/log" 2>&1 || { tail "$tmp/log"; exit 1; }
mount --bind /proc "$root/proc"
mount --bind /dev "$root/dev"
cp /etc/apt/apt.conf.d/*proxy* "$root/etc/apt/apt.conf.d/" 2>/dev/null || true
mkdir "$root/parley"
cp build/debian/*.deb examples/three-voices.wav test/api/diarization_test.c "$root/parley"
cp build/release/test-data/audio/mp4_aaclc_mono_16000.mp4 "$root/parley"
inside() { chroot "$root" /usr/bin/env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8 sh -ec "cd /parley; $1"; }
inside 'apt-get -qq install -y --no-install-recommends ./parley_*.deb ./parley-data_*.deb >/dev/null 2>&1'
inside 'parley -q -f rttm three-voices.wav' >"$tmp/rttm"
[ "$(cut -d' ' -f8 "$tmp/rttm" | sort -u | wc -l)" = 3 ]
# AAC is refused by name where its decoder is not there, and read where it is.
if inside 'parley -q -f rttm mp4_aaclc_mono_16000.mp4' >/dev/null 2>"$tmp/errors"; then exit 1; fi
grep -q libfdk-aac2 "$tmp/errors" || { cat "$tmp/errors"; exit 1; }
printf 'deb %s %s non-free\n' "${uri%|*}" "${uri#*|}" >"$root/etc/apt/sources.list.d/non-free.list"
inside 'apt-get -qq update; apt-get -qq install -y libfdk-aac2 >/dev/null 2>&1; parley -q -f rttm mp4_aaclc_mono_16000.mp4 >/dev/null'

inside 'apt-get -qq install -y --no-install-recommends ./python3-parley_*.deb ./libparley1_1*.deb >/dev/null 2>&1
    python3 -c "import parley; assert len(parley.Diarizer().diarize(\"three-voices.wav\").talk_time()) == 3"'
inside 'apt-get -qq install -y --no-install-recommends ./libparley-dev_*.deb gcc libc6-dev pkg-config >/dev/null 2>&1
    gcc diarization_test.c -o test $(pkg-config --cflags --libs parley-diarization)
    ./test $(pkg-config --variable=model parley-diarization) three-voices.wav >/dev/null'
inside 'apt-get -qq purge -y parley libparley1 libparley-dev parley-data python3-parley >/dev/null 2>&1'
if find "$root/usr" -name '*parley*' | grep .; then exit 1; fi
echo "installed by apt in a bare root: program, Python, C; removed without a trace"

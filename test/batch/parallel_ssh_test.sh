#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The recipe of docs/batch.md, against an ssh server of its own on loopback: PARLEY SOURCE_DIR. Needs root, for
# the server; 77 (skipped) without it, GNU parallel or sshd.
set -euo pipefail
parley=$(realpath "$1") source=$2
[ "$(id -u)" = 0 ] && [ -x /usr/sbin/sshd ] && [[ $(parallel --version 2>/dev/null) == "GNU parallel"* ]] || exit 77
tmp=$(mktemp -d)
server=
cleanup() { [ -z "$server" ] || kill "$server" 2>/dev/null || true; rm -rf "$tmp"; }
trap cleanup EXIT
cd "$tmp"

ssh-keygen -q -t ed25519 -N '' -f host
ssh-keygen -q -t ed25519 -N '' -f user
cp user.pub authorized
mkdir -p bin /run/sshd
ln -s "$parley" bin/parley
port=$((20000 + RANDOM % 20000))
cat >sshd_config <<CONFIG
Port $port
ListenAddress 127.0.0.1
HostKey $tmp/host
AuthorizedKeysFile $tmp/authorized
PidFile none
StrictModes no
PasswordAuthentication no
UsePAM no
PermitRootLogin yes
SetEnv PATH=$tmp/bin:/usr/bin:/bin
CONFIG
/usr/sbin/sshd -D -f sshd_config 2>sshd.log &
server=$!
printf '2/ssh -p %s -i %s/user -o StrictHostKeyChecking=no -o UserKnownHostsFile=/dev/null -o LogLevel=ERROR root@127.0.0.1\n' \
    "$port" "$tmp" >hosts
for _ in $(seq 50); do (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null && break; sleep 0.1; done

mkdir archive
for i in 1 2 3 4 5 6; do cp "$source/examples/three-voices.wav" archive/meeting-$i.wav; done
printf 'no audio' >archive/broken.mp3

# The commands in the last fences.
awk '/^```/ {n++; next} n == 7' "$source/docs/batch.md" >recipe
grep -q 'parallel --sshloginfile' recipe
sed -i 's/-n 20/-n 2/' recipe # so that seven files make several jobs
status=0
bash -e recipe 2>errors || status=$?
[ "$status" = 1 ] || { cat errors sshd.log; echo "status $status, wanted 1: one recording is broken"; exit 1; }
grep -q 'broken.mp3: is text, not audio' errors
[ "$(ls results | wc -l)" = 6 ]
for i in 1 2 3 4 5 6; do
    "$parley" --format rttm archive/meeting-$i.wav | cmp - results/meeting-$i.rttm
done

# Again, after one result was lost and the broken file replaced: only these two are worked on.
rm archive/broken.mp3 && cp "$source/examples/three-voices.wav" archive/broken.mp3
bash -e recipe 2>errors
[ "$(ls results | wc -l)" = 7 ]

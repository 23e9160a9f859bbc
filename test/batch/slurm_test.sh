#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The recipe of docs/batch.md under Slurm, with a controller and a node of its own that is killed on the way:
# PARLEY SOURCE_DIR. Needs root, in a namespace of its own; 77 (skipped) without it or without Slurm.
set -euo pipefail
parley=$(realpath "$1") source=$2
[ "$(id -u)" = 0 ] && command -v slurmctld slurmd sbatch munged >/dev/null || exit 77
tmp=$(mktemp -d)
cleanup() { pkill -9 -f "$tmp" 2>/dev/null || true; pkill -9 munged 2>/dev/null || true; rm -rf "$tmp"; }
trap cleanup EXIT
cd "$tmp"
mkdir -p bin state spool /run/munge
ln -s "$parley" bin/parley
export PATH=$tmp/bin:$PATH SLURM_CONF=$tmp/slurm.conf

# Slurm wants an address that is not the loopback device's.
ip link add parley0 type dummy 2>/dev/null || ip link add parley0 type veth peer name parley1 2>/dev/null || exit 77
ip address add 10.77.0.1/24 dev parley0
ip link set parley0 up
dd if=/dev/urandom of=key bs=1 count=1024 2>/dev/null
chmod 400 key
chmod 755 "$tmp"
chmod 711 /run/munge
munged --force --key-file="$tmp/key" --socket="$tmp/munge.socket" --pid-file="$tmp/munged.pid" --seed-file="$tmp/seed" --log-file="$tmp/munged.log"
host=$(hostname -s)
cat >slurm.conf <<CONFIG
ClusterName=parley
SlurmctldHost=$host(10.77.0.1)
AuthType=auth/munge
AuthInfo=socket=$tmp/munge.socket,cred_expire=5
CryptoType=crypto/munge
SlurmUser=root
SlurmdUser=root
SlurmctldPort=$((20000 + RANDOM % 10000))
SlurmdPort=$((30000 + RANDOM % 10000))
StateSaveLocation=$tmp/state
SlurmdSpoolDir=$tmp/spool
SlurmctldPidFile=$tmp/slurmctld.pid
SlurmdPidFile=$tmp/slurmd.pid
SlurmctldLogFile=$tmp/slurmctld.log
SlurmdLogFile=$tmp/slurmd.log
ProctrackType=proctrack/pgid
TaskPlugin=task/none
SelectType=select/cons_tres
SelectTypeParameters=CR_CPU
SchedulerParameters=batch_sched_delay=0,sched_interval=1
ReturnToService=2
SlurmdTimeout=5
MpiDefault=none
JobAcctGatherType=jobacct_gather/none
NodeName=$host NodeAddr=10.77.0.1 CPUs=2 State=UNKNOWN
PartitionName=all Nodes=ALL Default=YES MaxTime=INFINITE State=UP
CONFIG
timeout 20 slurmctld -c -f slurm.conf
timeout 20 slurmd -c -f "$tmp/slurm.conf"
for _ in $(seq 100); do [ "$(sinfo -h -o %t 2>/dev/null)" != idle ] || break; sleep 0.2; done
[ "$(sinfo -h -o %t)" = idle ] || { tail slurmctld.log slurmd.log; echo "the node does not come up"; exit 1; }

mkdir archive
for i in 1 2 3 4 5 6 7; do cp "$source/examples/three-voices.wav" archive/meeting-$i.wav; done
awk '/^```/ {n++; next} n == 9' "$source/docs/batch.md" >recipe
grep -q 'sbatch' recipe
sed -i 's/-l 20/-l 2/' recipe # so that seven files make several jobs
# Until the node was killed, all parts but the first take longer than this test waits.
cat >bin/slow <<SLOW
#!/bin/sh
case "\$*" in *parts/0000*) ;; *) [ -e $tmp/killed ] || sleep 60 ;; esac
exec $parley "\$@"
SLOW
chmod +x bin/slow
mv bin/slow bin/parley

timeout 150 bash -e recipe >output 2>errors &
recipe=$!
for _ in $(seq 300); do
    [ "$(ls results 2>/dev/null | wc -l)" -lt 2 ] || [ -z "$(squeue -h -t R)" ] || break
    sleep 0.1
done
# The node dies with all that it runs, and comes back.
touch killed
pkill -9 slurmd || true
pkill -9 slurmstepd || true
pkill -9 -f "$parley|$tmp/bin/parley" || true
sleep 1
timeout 20 slurmd -b -f "$tmp/slurm.conf"
wait $recipe || { cat output errors; tail -n 20 slurmctld.log; squeue; exit 1; }
[ "$(ls results/*.rttm | wc -l)" = 7 ] || { ls -la results logs; tail -20 slurmctld.log; exit 1; }
for i in 1 2 3 4 5 6 7; do "$parley" -q -f rttm archive/meeting-$i.wav; done | cmp - all.rttm
grep -q 'Requeue\|requeue' slurmctld.log || { echo "nothing was started again"; cat slurmctld.log; exit 1; }
echo "seven recordings in $(ls parts | wc -l) jobs, one node killed"

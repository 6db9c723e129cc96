#!/usr/bin/env bash
# A systemd of its own, with the programs of this system and files that are thrown away: namespaces of mounts, processes,
# network, names and control groups, and an overlay on the root.
#   systemd_root.sh FOLDER PREPARE   FOLDER is empty; PREPARE is a program that gets the new root as its argument and
#                                    readies it before systemd begins
# Runs until it is killed, which ends all in it. Ends with 77 where the system does not allow it.
set -euo pipefail
folder=$1 prepare=$2

if [[ ${3:-} != inside ]]; then
  tree=$(awk '$3 == "cgroup2" { print $2; exit }' /proc/mounts)
  [[ $(id -u) == 0 && -x /lib/systemd/systemd && -n $tree ]] || exit 77
  group=$tree/gvx-$$
  mkdir "$group" 2>/dev/null || exit 77
  (
    echo "$BASHPID" >"$group/cgroup.procs"
    exec unshare --mount --pid --fork --kill-child --cgroup --ipc --uts --net --propagation private "$0" "$folder" "$prepare" inside
  ) &
  child=$!
  trap 'kill -9 "$child"' TERM INT
  code=0
  wait "$child" || code=$?
  wait "$child" 2>/dev/null || true
  for _ in {1..50}; do
    find "$group" -depth -type d -exec rmdir {} + 2>/dev/null && break
    sleep 0.1
  done
  exit "$code"
fi

# systemd mounts what it needs of the rest by itself, the control groups too. What is the machine's can only be read.
mount -t tmpfs tmpfs "$folder" || exit 77
root=$folder/root
mkdir "$folder/upper" "$folder/work" "$root"
mount -t overlay overlay -o "lowerdir=/,upperdir=$folder/upper,workdir=$folder/work" "$root" || exit 77
mount -t proc proc "$root/proc"
mount -t sysfs -o ro sysfs "$root/sys" || exit 77
for of in dev run tmp; do mount -t tmpfs -o mode=755 tmpfs "$root/$of"; done
chmod 1777 "$root/tmp"
for device in null zero full random urandom tty; do
  touch "$root/dev/$device"
  mount --bind "/dev/$device" "$root/dev/$device"
done
mkdir "$root/dev/shm" "$root/dev/pts"
rm -rf "$root"/etc/systemd/system/*
"$prepare" "$root"
cd "$root"
mkdir old
pivot_root . old
umount -l /old
mount --bind /proc/sys /proc/sys
mount -o remount,bind,ro /proc/sys
export container=other
# Neither modules nor the clock, which are those of the machine; groups in the one tree that has its own beginning here.
exec setpriv --bounding-set=-sys_module,-sys_time,-sys_boot,-sys_rawio /lib/systemd/systemd --system systemd.unified_cgroup_hierarchy=1 </dev/null

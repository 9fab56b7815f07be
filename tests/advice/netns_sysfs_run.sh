#!/bin/sh
# Runs a command in a private network namespace with only loopback up, and a
# sysfs of that namespace: /sys/class/net must list the interfaces the test
# makes there, not the machine's. Needs root.
exec unshare --net --mount sh -c 'mount --make-rprivate / && mount -t sysfs sysfs /sys && ip link set lo up && exec "$@"' netns_sysfs_run "$@"

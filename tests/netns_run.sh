#!/bin/sh
# Runs a command in a private network namespace with only loopback up.
# Needs root (CI runs as root); nothing inside can reach another host.
exec unshare --net sh -c 'ip link set lo up && exec "$@"' netns_run "$@"

#!/usr/bin/env python3
"""Lists the requests a page made, from a Chromium net log (--log-net-log):
every URL request started on behalf of a file:// page (its initiator is the
file's opaque origin "null", or its isolation key names file://), whatever
its scheme. The browser's own background requests (component updates,
network time) are not the page's and are left out.
Exits 1 when the page requested anything.

usage: page_requests.py NETLOG_JSON"""
import json
import sys


def main():
    with open(sys.argv[1], encoding="utf-8") as f:
        log = json.load(f)
    names = {v: k for k, v in log["constants"]["logEventTypes"].items()}
    page_sources = set()
    urls = {}
    for event in log["events"]:
        params = event.get("params") or {}
        source = event["source"]["id"]
        name = names.get(event["type"], "")
        if name == "URL_REQUEST_START_JOB" and (
            params.get("initiator") == "null"
            or str(params.get("initiator", "")).startswith("file:")
            or "file://" in str(params.get("network_isolation_key", ""))
        ):
            page_sources.add(source)
        if "url" in params and name in ("REQUEST_ALIVE", "URL_REQUEST_START_JOB"):
            urls[source] = params["url"]
    requested = sorted({urls.get(s, "?") for s in page_sources})
    for url in requested:
        print(url)
    sys.exit(1 if requested else 0)


if __name__ == "__main__":
    main()

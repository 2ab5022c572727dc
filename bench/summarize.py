#!/usr/bin/env python3
"""Prints the table of ratios from one scripts/bench.sh run.

Reads the Google Benchmark JSON files (medians of the repetitions), the "# key: value" lines the
benchmark programs print after their timed runs, and the callgrind totals, all from DIR.
"""
import json
import os
import re
import sys


def medians(path):
    with open(path) as f:
        data = json.load(f)
    out = {}
    for b in data["benchmarks"]:
        if b.get("run_type") == "aggregate" and b.get("aggregate_name") != "median":
            continue
        name = b.get("run_name", b["name"])
        if b.get("run_type") == "aggregate" or name not in out:
            out[name] = b
    return out


def extras(path):
    out = {}
    with open(path) as f:
        for line in f:
            m = re.match(r"# ([\w.]+): (.*)", line)
            if m:
                out[m.group(1)] = m.group(2).strip()
    return out


def main(d):
    rt = medians(os.path.join(d, "round_trip.json"))
    fl = medians(os.path.join(d, "flood.json"))
    cd = medians(os.path.join(d, "codec.json"))
    rtx = extras(os.path.join(d, "round_trip.txt"))
    flx = extras(os.path.join(d, "flood.txt"))

    def t(table, name):
        return table[name]["real_time"]  # ns: every benchmark reports in ns

    rows = []
    base = t(rt, "BM_BaselineRoundTrip/real_time")
    ent = t(rt, "BM_EntityRoundTrip/log:1/real_time")
    ent0 = t(rt, "BM_EntityRoundTrip/log:0/real_time")
    rows.append(("round trip, floor (socket + 2 framework hops)", base / 1e3, "us", "1.00", ""))
    rows.append(("round trip, entity, logging on", ent / 1e3, "us", "%.2f" % (ent / base),
                 "target <= 1.5: %s" % ("met" if ent / base <= 1.5 else "NOT met")))
    rows.append(("round trip, entity, null log sink", ent0 / 1e3, "us", "%.2f" % (ent0 / base), ""))

    memcpy = t(fl, "BM_MemcpyRecord")
    fw = t(fl, "BM_FrameworkEvent")
    rows.append(("memcpy of one 47872-byte record", memcpy / 1e3, "us", "1.00", ""))
    rows.append(("framework event of 47872 bytes, no entity", fw / 1e3, "us",
                 "%.2f" % (fw / memcpy), ""))
    for log in (1, 0):
        for n in (1, 4, 16):
            per = t(fl, "BM_DataCallListFlood/entries:%d/log:%d" % (n, log)) / n
            own = per - fw
            verdict = ""
            if n == 16:
                verdict = "entity share %.2f x memcpy" % (own / memcpy)
            rows.append(("flood v11 x%-2d per entry, %s" % (n, "logging on" if log else "null log"),
                         per / 1e3, "us", "%.2f" % (per / memcpy), verdict))

    for name, label in (("BM_ReadDataCall/log:1", "data call v1001, 11 bearers, logging on"),
                        ("BM_ReadDataCall/log:0", "data call v1001, 11 bearers, null log"),
                        ("BM_Utf8ToUtf16/text_4k:0", "UTF-8 -> UTF-16, 16 B"),
                        ("BM_Utf8ToUtf16/text_4k:1", "UTF-8 -> UTF-16, 4 KiB"),
                        ("BM_Utf16ToUtf8/text_4k:0", "UTF-16 -> UTF-8, 16 B"),
                        ("BM_Utf16ToUtf8/text_4k:1", "UTF-16 -> UTF-8, 4 KiB"),
                        ("BM_MallocCopy/text_4k:0", "malloc + memcpy, 16 B (floor)"),
                        ("BM_MallocCopy/text_4k:1", "malloc + memcpy, 4 KiB (floor)")):
        b = cd[name]
        rows.append((label, b["real_time"] / 1e3, "us",
                     "%.0f MB/s" % (b.get("bytes_per_second", 0) / 1e6), ""))

    print("%-50s %12s  %-10s %s" % ("measure", "time", "ratio", "note"))
    for label, value, unit, ratio, note in rows:
        print("%-50s %9.3f %s  %-10s %s" % (label, value, unit, ratio, note))

    print()
    cg = os.path.join(d, "callgrind.txt")
    if os.path.exists(cg):
        print("instructions per operation (callgrind):")
        with open(cg) as f:
            sys.stdout.write(f.read())
        print()

    print("allocations per request (round trip, null log sink):")
    for k, v in sorted(rtx.items()):
        if k.startswith("allocs_per_request."):
            print("  %-40s %s" % (k[len("allocs_per_request."):], v))
    print("allocations in the flood:")
    for k, v in sorted(flx.items()):
        if k.startswith("allocs_per_"):
            print("  %-40s %s" % (k, v))
    print("stack high-water marks (KiB, page granularity):")
    for src in (rtx, flx):
        for k, v in sorted(src.items()):
            if k.startswith("stack_high_water_kib."):
                print("  %-40s %s" % (k[len("stack_high_water_kib."):], v))
    print("resident size (KiB): round trip VmHWM %s VmRSS %s; after the flood VmHWM %s VmRSS %s"
          % (rtx.get("vm_hwm_kib"), rtx.get("vm_rss_kib"), flx.get("vm_hwm_kib"),
             flx.get("vm_rss_kib")))
    print("machine:", rtx.get("machine"))


if __name__ == "__main__":
    main(sys.argv[1] if len(sys.argv) > 1 else "out/bench/results")

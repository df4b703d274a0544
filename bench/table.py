#!/usr/bin/env python3
"""Turns the JSON output of the benchmarks into the suite's Markdown table.

Names are <group>/<figure>/<role>[/...]: role "kavor" is the library's
figure, "floor" what libxml2 alone needs for the same document, any other
role a peer (or, for scale/, the size). Times are medians of the
repetitions: CPU time, except for figures timed by hand (wall time).
"""
import json
import sys

MANAGER_CHECKS = {
    "idle_1000_files_cpu_pct": ("% of one core", lambda v: v < 0.1, "< 0.1 %"),
    "burst_10000_requests_100_files_writes": ("writes", lambda v: v == 100, "exactly 100 (one per file)"),
    "register_10000_files_ms": ("ms", lambda v: v < 1000, "well under 1,000 ms"),
}


def load(paths):
    runs, context = {}, {}
    for p in paths:
        with open(p) as f:
            data = json.load(f)
        context.update(data.get("context", {}))
        for b in data["benchmarks"]:
            agg, key = b.get("aggregate_name"), tuple(b["run_name"].split("/")[:3])
            median_kept = agg is None and runs.get(key, {}).get("aggregate_name") == "median"
            if agg in (None, "median") and len(key) == 3 and not median_kept:
                runs[key] = b
    return runs, context


def micros(b):
    if "value" in b:
        return b["value"]
    manual = "manual_time" in b["name"] or "real_time" in b["name"]
    scale = {"ns": 1e-3, "us": 1.0, "ms": 1e3, "s": 1e6}[b["time_unit"]]
    return (b["real_time"] if manual else b["cpu_time"]) * scale


def fmt(v):
    return f"{v:,.0f}" if v >= 100 else f"{v:.2f}" if v < 10 else f"{v:.1f}"


def main():
    runs, context = load(sys.argv[1:])
    out = [f"Machine: {context.get('host_name', '?')}, {context.get('num_cpus', '?')} CPUs at "
           f"{context.get('mhz_per_cpu', '?')} MHz; medians of repetitions.\n"]
    misses = []

    def section(title, header):
        out.extend([f"\n### {title}\n", "| " + " | ".join(header) + " |", "|" + "---|" * len(header)])

    def check(ok, miss):  # the mark of a row; a miss is also listed at the end
        if not ok:
            misses.append(miss)
        return "" if ok else " **missed**"

    def pairs(group, title, unit, target_of):
        figs = sorted({k[1] for k in runs if k[0] == group})
        if figs:
            section(title, ["figure", f"kavor ({unit})", f"floor ({unit})", "ratio", "target"])
        for fig in figs:
            k, f = runs.get((group, fig, "kavor")), runs.get((group, fig, "floor"))
            if not k or not f:
                continue
            if k.get("error_occurred") or f.get("error_occurred"):
                out.append(f"| {fig} | error | error | | |")
                misses.append(f"{group}/{fig}: error")
                continue
            kv, fv = micros(k), micros(f)
            ratio = kv / fv if fv else float("inf")
            target = target_of(fig)
            mark = "" if target is None else f"<= {target:.2f}" + check(
                ratio <= target, f"{group}/{fig}: {ratio:.2f}x (target {target:.2f}x)")
            out.append(f"| {fig} | {fmt(kv)} | {fmt(fv)} | {ratio:.2f} | {mark} |")

    pairs("codec", "Codec per kind (time per call)", "µs", lambda fig: 1.25)
    pairs("file", "Whole files of the device block", "µs", lambda fig: 1.15 if fig.startswith("save") else 1.10)
    pairs("road", "Save road: sweep start to file in place", "µs", lambda fig: None)
    pairs("memory", "Peak resident growth", "KiB", lambda fig: 2.0)

    if any(k[0] == "peer" for k in runs):
        section("Peers: the device block to a file and back", ["figure", "kavor plain (µs)",
                "kavor gzip (µs)", "peer (µs)", "peer / kavor plain"])
        peers = sorted({k[2] for k in runs if k[0] == "peer"} - {"kavor_plain", "kavor_gzip"})
        for op in ("save", "load"):
            kp, kg = runs.get(("peer", op, "kavor_plain")), runs.get(("peer", op, "kavor_gzip"))
            for who in peers:
                p = runs.get(("peer", op, who))
                if not p or not kp or not kg:
                    continue
                if p.get("error_occurred"):
                    out.append(f"| {op} {who} | | | error | |")
                    continue
                r = micros(p) / micros(kp)
                if r < 1.0:
                    misses.append(f"peer {op} {who}: kavor plain {micros(kp):.0f} µs, {who} {micros(p):.0f} µs")
                out.append(f"| {op} {who} | {fmt(micros(kp))} | {fmt(micros(kg))} | {fmt(micros(p))} | {r:.2f} |")
        missing = [k[len("peer_missing_"):] for k in context if k.startswith("peer_missing_")]
        if missing:
            out.append(f"\nPeers skipped (package not found): {', '.join(missing)}.")

    scales = sorted({k[1] for k in runs if k[0] == "scale" and not k[1].endswith("_floor")})
    if scales:
        section("Scaling: time per value, largest size against 10,000", ["figure", "largest (ns/value)",
                "at 10,000 (ns/value)", "ratio", "target", "libxml2 alone, same sizes"])
    for fig in scales:
        sizes = sorted(int(k[2]) for k in runs if k[0] == "scale" and k[1] == fig)
        if 10000 not in sizes:
            continue
        big, floor = sizes[-1], fig + "_floor"
        pv = lambda f, n: micros(runs[("scale", f, str(n))]) * 1000.0 / n
        r = pv(fig, big) / pv(fig, 10000)
        has_floor = ("scale", floor, str(big)) in runs and ("scale", floor, "10000") in runs
        fr = f"{pv(floor, big) / pv(floor, 10000):.2f}" if has_floor else ""
        mark = check(r <= 1.3, f"scale/{fig}: {r:.2f}x (target 1.30x; libxml2 alone {fr or '-'}x)")
        out.append(f"| {fig} {big:,} | {fmt(pv(fig, big))} | {fmt(pv(fig, 10000))} | {r:.2f} | <= 1.30{mark} | {fr} |")

    mgr = {k[1]: runs[k] for k in runs if k[0] == "manager"}
    if mgr:
        section("Manager", ["figure", "kavor", "target"])
    for fig, b in sorted(mgr.items()):
        unit, ok, text = MANAGER_CHECKS.get(fig, ("", lambda v: True, ""))
        v = b.get("value", micros(b))
        out.append(f"| {fig} | {v:.3g} {unit} | {text}" + check(ok(v), f"manager/{fig}: {v}") + " |")

    out.append("\n### Targets missed\n")
    out.extend(f"- {m}" for m in misses) if misses else out.append("None.")
    print("\n".join(out))


if __name__ == "__main__":
    main()

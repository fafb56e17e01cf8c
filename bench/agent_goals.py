#!/usr/bin/env python3
"""The goals of the whole agent from receivers to rows, judged from the figures of one run.

Usage: agent_goals.py FIGURES.json TO.md   (the output of corvane_bench --benchmark_out)
"""
import json
import os
import sys


WHOLE = ("4,000 vlans, 1,000 VRFs, 100,000 routes, 131,000 memberships, 4,096 tunnels, "
         "10,000 forwarder roles")


class Figures:
    def __init__(self, path):
        with open(path, encoding="utf-8") as text:
            found = json.load(text)
        self.context = found["context"]
        self.by_name = {b["name"]: b for b in found["benchmarks"] if "error_occurred" not in b}

    def time(self, name):
        """Processor time of one iteration, in microseconds."""
        figure = self.by_name[name]
        return figure["cpu_time"] * {"ns": 1e-3, "us": 1, "ms": 1e3, "s": 1e6}[figure["time_unit"]]

    def counter(self, name, counter):
        return self.by_name[name][counter]


def goals(f):
    """Yields (work, found, bound, better, unit); bound or better may be None."""
    sizes = [1000, 10000, 131000]
    joins = [f.time(f"joinAndLeave/{n}") / 2 for n in sizes]
    for n, found in zip(sizes, joins):
        yield f"a join or leave among {n:,} memberships, to the row", found, 5, 2, "us"
    yield "the same at the largest beside the smallest", joins[-1] / joins[0], 1.5, 1.2, "times"
    yield ("a popular group's join: 1,000 member vlans beside 10",
           f.time("popularGroup/1000") / f.time("popularGroup/10"), 1.5, 1.2, "times")
    for kind, name in [("join", "join us"), ("leave", "leave us")]:
        yield (f"of these, a {kind} among 131,000",
               f.counter("joinsBesideLeaves/131000", name), None, 2, "us")
    across = "joinFromAnotherProcess/10000/iterations:1/real_time"
    yield ("a client's table to a reader of PIM's table, three roles in two processes, median",
           f.counter(across, "median us"), 100, 50, "us")
    yield "the same, 99 of 100", f.counter(across, "p99 us"), 1000, None, "us"
    start = f.time("startToMemberships/131000")
    yield ("start to 131,000 rows beside the direct computation",
           start / f.time("membershipsFromValues/131000"), 3, 2, "times")
    yield ("the same beside one that asks the clients' tables vlan by vlan",
           start / f.time("membershipsDirectly/131000"), None, 2, "times")
    restart = "restartOverMemberships/131000/iterations:3"
    yield "restart over 131,000 rows: writes", f.counter(restart, "writes"), 0, 0, "writes"
    yield "restart over 131,000 rows", f.time(restart) / 1000, 1000, 200, "ms"
    yield ("MLAG state, 131,000 memberships, beside the direct computation",
           f.time("mlagStateChanges/131000") / f.time("membershipsFromValues/131000"), 3, 2, "times")
    slices = "mlagLongestSlice/131000/iterations:1"
    yield ("MLAG state, the longest time without yielding",
           max(f.counter(slices, "write ms"), f.counter(slices, "slice ms")), None, None, "ms")
    yield ("an SBD vlan's move among 1,000 VRFs beside one among 10",
           f.time("sbdVlanMoves/1000") / f.time("sbdVlanMoves/10"), 1.5, 1.2, "times")
    yield ("a forwarder change among 10,000 ports and vlans beside one among 100",
           f.time("forwarderChanges/10000") / f.time("forwarderChanges/100"), 1.5, 1.2, "times")
    yield ("a tunnel request to its encapsulation and status row, the first 4,096 of an agent",
           f.time("tunnelRequestsCold/4096") / 4096, None, None, "us")
    yield ("the same beside the first 16",
           f.time("tunnelRequestsCold/4096") / 256 / f.time("tunnelRequestsCold/16"), None, 2, "times")
    yield ("one that goes and comes among 4,096",
           f.time("tunnelRequestsWarm/4096") / 2, None, None, "us")
    yield ("the same beside one among 16",
           f.time("tunnelRequestsWarm/4096") / f.time("tunnelRequestsWarm/16"), None, 2, "times")
    whole, again = "everythingStarts/iterations:1", "everythingRestarts/iterations:1"
    yield (f"everything at once ({WHOLE}): start", f.time(whole) / 1e6, None, None, "s")
    yield ("the same beside the direct computations of the histories",
           f.time(whole) / f.time("everythingDirectly/iterations:1"), 3, 1, "times")
    yield ("of it, the call that makes the machines", f.counter(whole, "start ms"), None, None, "ms")
    yield "of it, the longest slice of a task", f.counter(whole, "slice ms"), None, None, "ms"
    yield ("the agent's memory, beside "
           f"{f.counter(whole, 'input MB'):,.0f} MB of inputs",
           f.counter(whole, "agent MB"), None, None, "MB")
    yield "restart over all of it", f.time(again) / 1e6, 2, 1, "s"
    yield ("writes of that restart, but for tunnels of ingress replication",
           f.counter(again, "writes"), 0, 0, "writes")
    told = "bytesOfMembership/131000/iterations:1"
    yield ("a membership in the agent (its inputs take "
           f"{f.counter(told, 'input B/row'):,.0f} bytes)",
           f.counter(told, "agent B/row"), None, 500, "bytes")


def report(f):
    load = ", ".join(f"{x:.1f}" for x in f.context["load_avg"])
    lines = ["# From receivers to PIM's rows", "",
             "Generated by `make bench`; do not edit. One agent in one process, its inputs written by "
             "the measuring thread; processor time, but where a second process takes part. Read ratios: they "
             "are of one run.", "",
             f"* {f.context['num_cpus']} cores, {f.context['date'][:10]}, load average {load}", "",
             "| work | found | goal | better still | |", "|---|--:|--:|--:|---|"]
    for work, found, bound, better, unit in goals(f):
        goal = "told" if bound is None else f"{bound:g} {unit}"
        wish = "" if better is None else f"{better:g} {unit}"
        met = "" if bound is None else "met" if found <= bound else "**missed**"
        lines.append(f"| {work} | {found:,.2f} {unit} | {goal} | {wish} | {met} |")
    return "\n".join(lines) + "\n"


def main():
    figures = Figures(sys.argv[1])
    text = report(figures)
    with open(os.path.join(sys.argv[2]), "w", encoding="utf-8") as out:
        out.write(text)
    print(text, end="")


if __name__ == "__main__":
    main()

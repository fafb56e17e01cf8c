"""What the measurements are held against."""


class Figures:
    """Medians by topic, candidate and column."""

    def __init__(self, results):
        self.topics = {t["topic"]: {c["name"]: {f["column"]: f["median"] for f in c["figures"]}
                                    for c in t["candidates"]} for t in results["topics"]}

    def of(self, topic, candidate, column):
        return self.topics[topic][candidate][column]

    def ratio(self, topic, column, above, below):
        return self.of(topic, above, column) / self.of(topic, below, column)


OURS = "shared table"
LMDB = "LMDB, a row a transaction"
VECTOR = "vector of std::function"
WRITES = ["insert", "update", "delete"]
NOTICES = ["1 subscriber", "4 subscribers", "cold objects"]


def table_goals(f):
    for topic in [name for name in f.topics if name.startswith("tables")]:
        for column in WRITES:
            yield (f"{topic}: {column} beside LMDB", f.ratio(topic, column, LMDB, OURS),
                   ">= 10 times")
        yield (f"{topic}: read in a second process beside LMDB", f.ratio(topic, "read", LMDB, OURS),
               ">= 4 times")
        yield (f"{topic}: scan beside LMDB", f.ratio(topic, "scan", LMDB, OURS), ">= 8 times")
        yield (f"{topic}: a row of 56 bytes", f.of(topic, OURS, "size"), "<= 72 bytes")
        yield (f"{topic}: opening, every row verified", f.of(topic, OURS, "opening"), "<= 10 ms")


def kill_goals(f):
    kills = f.of("kills", OURS, "kills")
    yield (f"tables: damaged in {kills:.0f} kills", f.of("kills", OURS, "damaged"), "<= 0")


def notification_goals(f):
    for column in NOTICES:
        yield (f"notice, {column}: beside Boost.Signals2",
               f.ratio("notification", column, "Boost.Signals2", "attribute"), ">= 6 times")
        yield (f"notice, {column}: beside a vector",
               f.ratio("notification", column, "attribute", VECTOR), "<= 2.5 times")
    yield ("notice: an object that nobody watches",
           f.of("notification", "attribute", "size unwatched"), "<= 16 bytes")


def map_goals(f):
    for topic in f.topics:
        if not topic.startswith("map of") or not topic.endswith("routes"):
            continue
        for column in ["hit", "insert", "erase"]:
            yield (f"{topic}: {column} beside node_hash_map",
                   f.ratio(topic, column, "keyed map", "absl::node_hash_map"), "<= 1.5 times")
        yield (f"{topic}: an entry of an iteration", f.of(topic, "keyed map", "iterate"), "<= 10 ns")
        slower = max(f.of(topic, "keyed map", column) for column in ["hit", "miss"])
        yield (f"{topic}: resume beside a look-up", f.of(topic, "keyed map", "resume") / slower,
               "<= 1.5 times")


def trace_goals(f):
    yield ("trace that is off: one test", f.of("tracing", "trace", "trace, off"), "<= 1 ns")
    yield ("ring record", f.of("tracing", "trace", "ring record"), "<= 25 ns")


def shown(value):
    if 0 < abs(value) < 0.1:
        return f"{value:.2f}"
    return f"{value:.0f}" if value == int(value) or value >= 100 else f"{value:.2g}"


def judge(results):
    """Yields (text, wanted, found, met) for each goal whose topics have been measured."""
    figures = Figures(results)
    for topic, goals in [("tables", table_goals), ("kills", kill_goals),
                         ("notification", notification_goals), ("map of", map_goals),
                         ("tracing", trace_goals)]:
        if not any(name.startswith(topic) for name in figures.topics):
            continue
        for text, found, wanted in goals(figures):
            relation, bound, *unit = wanted.split()
            met = found >= float(bound) if relation == ">=" else found <= float(bound)
            least = {">=": "at least", "<=": "at most"}[relation]
            yield (text, " ".join([least, bound, *unit]), " ".join([shown(found), *unit]), met)

"""What a fleet's figures say, for people."""


def table(figures):
    delivered = figures["recognition_to_acknowledgement_ms"]
    requests = figures["requests_ms"]
    lines = [f"{figures['cameras']} cameras, {figures['cars_per_minute']:g} cars a minute each, "
             f"{figures['seconds']:g} s",
             f"  online             {figures['online']}, all after {figures['seconds_to_online']} s",
             f"  results            {figures['results']}: {figures['acknowledged']} acknowledged, "
             f"{figures['undelivered']} still in the stores, {figures['lost']} lost, "
             f"{figures['arrived_again']} arrived again",
             f"  acknowledged       {_times(delivered)} after recognition",
             f"  requests           {figures['requests_answered']} answered "
             f"({figures['requests_failed']} of them with a failure), "
             f"{figures['requests_unanswered']} not; {_times(requests)}"]
    for kind in ("agent", "camera"):
        cost = figures["cost"][kind]
        lines.append(f"  each {kind:<13} {_cost(cost, 'median')}; at most {_cost(cost, 'most')}")
    for name, cost in figures["cost"]["servers"].items():
        lines.append(f"  {name:<18} {_cost(cost, 'median')}")
    if "returns_ms" in figures:
        lines.append(_returns(figures))
    return "\n".join(lines)


def _times(of):
    return f"p50 {of['p50']} ms, p99 {of['p99']} ms, at most {of['most']} ms" if of["count"] else "-"


def _cost(cost, which):
    return (f"{cost['cpu_ms_per_s'][which]} ms CPU a second, {cost['threads'][which]} threads, "
            f"{cost['private_kb'][which]} KiB private")


def most_within(times_ms, width_ms):
    """The largest number of them that lie within any so long time."""
    first = most = 0
    for last, at in enumerate(times_ms):
        while at - times_ms[first] >= width_ms:
            first += 1
        most = max(most, last - first + 1)
    return most


def _returns(figures):
    times = figures["returns_ms"]
    return (f"  broker back        after {figures['broker_away_s']:g} s away: the agents were "
            f"connected again {times[0]} to {times[-1]} ms later, at most "
            f"{most_within(times, 100)} of {len(times)} within 100 ms")

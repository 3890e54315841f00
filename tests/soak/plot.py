"""The samples of a soak as an SVG: a panel a quantity, all over the same time."""

WIDTH, PANEL, LEFT, TOP = 800, 110, 90, 30
MIB = 1024 * 1024
# Title, unit, how large a unit is, field.
PANELS = [("resident memory", "MiB", MIB, "rss"), ("private dirty", "MiB", MIB, "private_dirty"),
          ("cursor file", "MiB", MIB, "cursor_bytes"), ("lines written", "", 1, "written"),
          ("CPU time", "s", 1, "cpu_seconds"), ("descriptors", "", 1, "descriptors"),
          ("clock set forth by", "h", 3600, "shift")]


def plot(samples):
    height = TOP + len(PANELS) * PANEL + 20
    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{WIDTH}" height="{height}" '
             'font-family="sans-serif" font-size="11">', '<rect width="100%" height="100%" fill="white"/>']
    for number, (title, unit, scale, field) in enumerate(PANELS):
        values = [getattr(sample, field) / scale for sample in samples]
        parts.append(panel(f"{title} {unit}".strip(), TOP + number * PANEL,
                           [sample.seconds for sample in samples], values))
    parts.append(f'<text x="{WIDTH - 20}" y="{height - 6}" text-anchor="end">'
                 f"{samples[-1].seconds / 60:.1f} minutes</text></svg>\n")
    return "\n".join(parts)


def panel(title, top, times, values):
    """A line from 0, or the least value below it, to the greatest."""
    low, high = min(0, *values), max(values)
    room, span = PANEL - 35, (high - low) or 1
    points = " ".join(
        f"{LEFT + (WIDTH - LEFT - 20) * second / times[-1]:.1f},"
        f"{top + room * (1 - (value - low) / span):.1f}"
        for second, value in zip(times, values, strict=True))
    return (f'<text x="{LEFT}" y="{top - 6}" font-weight="bold">{title}</text>'
            f'<text x="{LEFT - 6}" y="{top + 8}" text-anchor="end">{words(high)}</text>'
            f'<text x="{LEFT - 6}" y="{top + room}" text-anchor="end">{words(low)}</text>'
            f'<path d="M{LEFT},{top}v{room}h{WIDTH - LEFT - 20}" fill="none" stroke="#999"/>'
            f'<polyline points="{points}" fill="none" stroke="#06c" stroke-width="1.2"/>')


def words(value):
    return f"{value:,.2f}".removesuffix(".00")

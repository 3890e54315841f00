"""The cost of an idle pass against the number of files, as an SVG with logarithmic axes."""

import html
import math

WIDTH, HEIGHT, LEFT, RIGHT, TOP, BOTTOM = 720, 440, 80, 190, 40, 60
COLOURS = ["#1b6ca8", "#c4501b", "#6aa5cc", "#e2a07f"]


def _decades(values):
    return (math.floor(math.log10(min(values)) + 1e-9), math.ceil(math.log10(max(values)) - 1e-9))


def svg(title, x_label, y_label, series):
    """`series`: a name and its points (x, low, median, high) each, all above 0."""
    points = [point for _, line in series for point in line]
    x_first, x_last = _decades([point[0] for point in points])
    y_first, y_last = _decades([value for point in points for value in point[1:]])
    x_last, y_last = max(x_last, x_first + 1), max(y_last, y_first + 1)

    def x(value):
        return LEFT + (math.log10(value) - x_first) / (x_last - x_first) * (WIDTH - LEFT - RIGHT)

    def y(value):
        return HEIGHT - BOTTOM - (math.log10(value) - y_first) / (y_last - y_first) * (HEIGHT - TOP - BOTTOM)

    out = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" '
           f'font-family="sans-serif" font-size="12"><rect width="100%" height="100%" fill="white"/>',
           f'<text x="{LEFT}" y="22" font-size="15">{html.escape(title)}</text>']
    for power in range(x_first, x_last + 1):
        at = x(10 ** power)
        out.append(f'<path d="M{at:.1f} {TOP}V{HEIGHT - BOTTOM}" stroke="#ddd"/><text x="{at:.1f}" '
                   f'y="{HEIGHT - BOTTOM + 18}" text-anchor="middle">{10 ** power:,}</text>')
    for power in range(y_first, y_last + 1):
        at = y(10 ** power)
        out.append(f'<path d="M{LEFT} {at:.1f}H{WIDTH - RIGHT}" stroke="#ddd"/><text x="{LEFT - 8}" '
                   f'y="{at + 4:.1f}" text-anchor="end">{10.0 ** power:g}</text>')
    out.append(f'<text x="{(LEFT + WIDTH - RIGHT) / 2}" y="{HEIGHT - 14}" text-anchor="middle">'
               f'{html.escape(x_label)}</text><text transform="translate(18 {HEIGHT / 2}) rotate(-90)" '
               f'text-anchor="middle">{html.escape(y_label)}</text>')
    for index, (name, line) in enumerate(series):
        colour = COLOURS[index % len(COLOURS)]
        path = " ".join(f"{x(n):.1f},{y(median):.1f}" for n, _, median, _ in line)
        out.append(f'<polyline points="{path}" fill="none" stroke="{colour}" stroke-width="2"/>')
        for n, low, median, high in line:
            out.append(f'<path d="M{x(n):.1f} {y(low):.1f}V{y(high):.1f}" stroke="{colour}"/>'
                       f'<circle cx="{x(n):.1f}" cy="{y(median):.1f}" r="3.5" fill="{colour}"/>')
        row = TOP + 16 + 20 * index
        out.append(f'<path d="M{WIDTH - RIGHT + 12} {row - 4}h22" stroke="{colour}" stroke-width="2"/>'
                   f'<text x="{WIDTH - RIGHT + 40}" y="{row}">{html.escape(name)}</text>')
    return "\n".join(out) + "\n</svg>\n"

// Figures and times as a person reads them.

const numbers = new Intl.NumberFormat("en");

export const count = (value) => numbers.format(value ?? 0);

export function bytes(value) {
  if (value < 1000) return `${value} B`;
  const units = ["kB", "MB", "GB", "TB"];
  let size = value / 1000;
  let unit = 0;
  while (size >= 999.5 && unit < units.length - 1) {
    size /= 1000;
    unit += 1;
  }
  return `${size.toFixed(size < 10 ? 1 : 0)} ${units[unit]}`;
}

export function duration(microseconds) {
  if (microseconds < 1000) return `${microseconds} µs`;
  if (microseconds < 1e6) return `${(microseconds / 1000).toFixed(1)} ms`;
  return `${(microseconds / 1e6).toFixed(1)} s`;
}

/** Local date and time of a timestamp; text that is none stays as it came. */
export function time(text) {
  if (!text) return "–";
  const date = new Date(text);
  if (Number.isNaN(date.getTime()) || text.length > 40) return String(text).slice(0, 40);
  const two = (value) => String(value).padStart(2, "0");
  return (
    `${date.getFullYear()}-${two(date.getMonth() + 1)}-${two(date.getDate())} ` +
    `${two(date.getHours())}:${two(date.getMinutes())}:${two(date.getSeconds())}`
  );
}

export function ago(text) {
  const seconds = Math.max(0, Math.round((Date.now() - new Date(text).getTime()) / 1000));
  if (seconds < 90) return `${seconds} s ago`;
  if (seconds < 5400) return `${Math.round(seconds / 60)} min ago`;
  if (seconds < 172800) return `${Math.round(seconds / 3600)} h ago`;
  return `${Math.round(seconds / 86400)} days ago`;
}

export const plural = (number, noun) => `${count(number)} ${noun}${number === 1 ? "" : "s"}`;

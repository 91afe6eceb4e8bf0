function padded(value: number, digits = 2): string {
  return String(value).padStart(digits, "0");
}

function localDate(time: Date): string {
  return `${padded(time.getFullYear(), 4)}-${padded(time.getMonth() + 1)}-${padded(time.getDate())}`;
}

/** "2026-11-21T09-30-05": the local time in a form that sorts and that file names may hold. */
export function sortableLocalTime(ms: number): string {
  const time = new Date(ms);
  return `${localDate(time)}T${padded(time.getHours())}-${padded(time.getMinutes())}-${padded(time.getSeconds())}`;
}

/** "2026-11-21T09:30:05+01:00". */
export function isoLocalTime(ms: number): string {
  const time = new Date(ms);
  const offset = -time.getTimezoneOffset();
  const sign = offset < 0 ? "-" : "+";
  const hours = padded(Math.floor(Math.abs(offset) / 60));
  const minutes = padded(Math.abs(offset) % 60);
  const clock = `${padded(time.getHours())}:${padded(time.getMinutes())}:${padded(time.getSeconds())}`;
  return `${localDate(time)}T${clock}${sign}${hours}:${minutes}`;
}

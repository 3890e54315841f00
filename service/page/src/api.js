// Asks the service. The token came with the page's own address.

const token = new URLSearchParams(location.search).get("token") ?? "";

export class ServiceError extends Error {
  constructor(status, text) {
    super(text);
    this.status = status;
  }
}

export function address(path, parameters = {}) {
  const all = new URLSearchParams({ token });
  for (const [name, value] of Object.entries(parameters)) {
    if (value !== "" && value !== undefined && value !== false) {
      all.set(name, value === true ? "1" : value);
    }
  }
  return `/api/local/${path}?${all}`;
}

export async function ask(path, parameters, signal) {
  let answer;
  try {
    answer = await fetch(address(path, parameters), { signal });
  } catch {
    throw new ServiceError(0, "The service does not answer. Is it still running?");
  }
  const value = await answer.json();
  if (!answer.ok) throw new ServiceError(answer.status, value.error);
  return value;
}

/** Calls `changed` at once and whenever the service has handled more, `state` with "live" or "lost". */
export function listen(changed, state) {
  const source = new EventSource(address("changes"));
  source.addEventListener("open", () => state("live"));
  source.addEventListener("error", () => state("lost"));
  source.addEventListener("message", changed);
}

// The address holds what is looked at: #/jobs?state=failed, #/job/3/frame/12.

/** What the address asks for: `view`, `job`, `frame` (a number, or "work" of a
    job without frames) and `query`. */
export function parse(hash = location.hash) {
  const [path, search = ""] = hash.replace(/^#\/?/, "").split("?", 2);
  const words = path.split("/").filter(Boolean);
  const query = new URLSearchParams(search);
  const job = /^\d+$/.test(words[1] ?? "") ? Number(words[1]) : null;
  if (words.length === 0 || (words[0] === "jobs" && words.length === 1)) {
    return { view: "jobs", query };
  }
  if (words[0] === "machine" && words.length === 1) {
    return { view: "machine", query };
  }
  if (words[0] === "job" && job !== null) {
    if (words.length === 2) {
      return { view: "job", job, query };
    }
    if (words[2] === "play" && words.length === 3) {
      return { view: "play", job, query };
    }
    if (words[2] === "frame" && words.length === 4 && /^(-?\d+|work)$/.test(words[3])) {
      return { view: "frame", job, frame: words[3] === "work" ? "work" : Number(words[3]), query };
    }
  }
  return { view: "unknown", query };
}

export function address(path, query) {
  const text = query?.toString() ?? "";
  return `#/${path}${text ? `?${text}` : ""}`;
}

export function go(path, query) {
  location.hash = address(path, query);
}

/** Changes parts of the query without a new entry in the history; an empty value
    takes its key out. Tells nobody: who calls knows what it changed. */
export function setQuery(changes) {
  const [path, search = ""] = location.hash.split("?", 2);
  const query = new URLSearchParams(search);
  for (const [key, value] of Object.entries(changes)) {
    if (value === null || value === undefined || value === "") {
      query.delete(key);
    } else {
      query.set(key, value);
    }
  }
  const text = query.toString();
  history.replaceState(history.state, "", `${path || "#/jobs"}${text ? `?${text}` : ""}`);
}

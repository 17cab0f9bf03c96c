"use strict";
// Asks the agent every two seconds and shows what it says. Texts of alarms are anybody's: they become text nodes, never
// markup.
(() => {
  const INTERVAL = 2000;    // between two looks, in milliseconds
  const SOON = 400;         // while the agent reads its alarms
  const PATIENCE = 10000;   // for an answer
  const TYPING = 250;       // after a key, before the filter is applied
  const POINTS = 150;       // of a curve: five minutes
  const LONGEST = 2000;     // characters of a text that are shown
  const SHOWN = 100;        // members of a list of destinations
  const MOST = 1000;        // alarms that the agent gives at a time
  const SVG = "http://www.w3.org/2000/svg";
  const LEVELS = [["critical", "\u25b2"], ["major", "\u25c6"], ["minor", "\u25cf"], ["warning", "\u25cb"]];

  const byId = id => document.getElementById(id);

  // An element with these attributes and children, which are elements or texts.
  const make = (tag, attributes, ...children) => {
    const element = document.createElement(tag);
    for (const [name, value] of Object.entries(attributes)) element.setAttribute(name, value);
    element.append(...children.map(child => typeof child === "string" ? cut(child) : child));
    return element;
  };
  const cut = text => text.length <= LONGEST ? text
    : text.slice(0, LONGEST) + "\u2026 (" + (text.length - LONGEST) + " more characters)";
  const say = (element, text) => {
    if (element.textContent !== text) element.textContent = text;
  };

  // A list's elements, those of unchanged items as they were.
  const built = new WeakMap();
  const fill = (list, items, build) => {
    const before = built.get(list) || new Map();
    const now = new Map();
    for (const item of items) {
      const key = JSON.stringify(item);
      now.set(key, before.get(key) || build(item));
    }
    built.set(list, now);
    const elements = Array.from(now.values());
    if (elements.length !== list.children.length || elements.some((one, i) => list.children[i] !== one)) {
      list.replaceChildren(...elements);
    }
  };

  // Numbers and times for people.

  const count = number => (number || 0).toLocaleString("en");
  const plural = (number, one, many) => count(number) + " " + (number === 1 ? one : many);
  const sum = counts => Object.values(counts || {}).reduce((all, one) => all + one, 0);
  const duration = seconds => {
    if (typeof seconds !== "number") return "?";
    const s = Math.max(0, Math.floor(seconds)), m = Math.floor(s / 60), h = Math.floor(m / 60), d = Math.floor(h / 24);
    if (d > 0) return d + " d " + h % 24 + " h";
    if (h > 0) return h + " h " + m % 60 + " min";
    return m > 0 ? m + " min" : s + " s";
  };
  const short = seconds => {
    if (seconds < 0.001) return Math.round(seconds * 1e6) + " \u00b5s";
    return seconds < 1 ? Number((seconds * 1000).toPrecision(2)) + " ms" : Number(seconds.toPrecision(2)) + " s";
  };
  const two = number => String(number).padStart(2, "0");
  const clock = date => two(date.getHours()) + ":" + two(date.getMinutes()) + ":" + two(date.getSeconds());
  const moment = text => {
    const date = new Date(text);
    if (text === null || isNaN(date)) return "-";
    const day = date.getFullYear() + "-" + two(date.getMonth() + 1) + "-" + two(date.getDate());
    return (day === moment.today() ? "" : day + " ") + clock(date);
  };
  moment.today = () => {
    const now = new Date();
    return now.getFullYear() + "-" + two(now.getMonth() + 1) + "-" + two(now.getDate());
  };
  const when = text => make("time", {datetime: text || ""}, moment(text));
  const levelOf = name => {
    const level = LEVELS.find(one => one[0] === name);
    const sign = make("span", {"aria-hidden": "true"}, (level ? level[1] : "") + " ");
    return make("span", {class: "level " + (level ? name : "")}, sign, name || "no level");
  };

  // What is wrong, as vrxctl status says it.

  const LISTED = [["destinations", "number", "state", ["ready", "not used yet"], "trap destination "],
                  ["informs", "destination", "state", ["answers", "not used yet"], "inform receiver "],
                  ["objects", "name", "readable", [true], "object "]];
  const troublesOf = status => {
    const troubles = [];
    if (!status.backend.connected) troubles.push("the backend is away");
    if (!status.events.definitions_loaded) troubles.push("the alarm definitions cannot be loaded, alarm events wait");
    if (!status.agent.last_reload_taken) troubles.push("the last reload was refused");
    if (status.notification_log.fault) troubles.push("the notification log cannot be written: " + status.notification_log.fault);
    for (const [list, name, state, good, title] of LISTED) {
      for (const one of status[list]) {
        if (!good.includes(one[state])) troubles.push(title + one[name] + ": " + (one[state] || "cannot be read"));
      }
    }
    return troubles;
  };

  const showVerdict = status => {
    const troubles = troublesOf(status), most = 4;
    const text = troubles.slice(0, most).join("; ") + (troubles.length > most ? "; and " + (troubles.length - most) + " more" : "");
    byId("verdict").className = troubles.length > 0 ? "trouble" : "good";
    say(byId("verdict"), cut(text || "all is well"));
    say(byId("about"), "vrx-agentd " + status.agent.version + ", up " + duration(status.agent.uptime_seconds) + "; seen at " + clock(new Date()));
  };

  const showBackend = ({backend}) => {
    const state = byId("backend-state");
    state.className = "state " + (backend.connected ? "good" : "trouble");
    say(state, (backend.connected ? "connected" : "away") + " since " + moment(backend.since) + " (" + duration(backend.since_seconds) + ")");
    const {latency} = backend;
    say(byId("backend-calls"), backend.address + "; " + plural(backend.calls, "call", "calls") +
        (latency.count > 0 ? ", half answered within " + short(latency.p50_seconds) + ", 99 % within " + short(latency.p99_seconds) : "") +
        ", " + count(backend.failures) + " without an answer, " + count(backend.refusals) + " refused");
  };

  // Where traps and informs go.

  const drops = dropped => {
    const reasons = Object.entries(dropped).filter(([, number]) => number > 0).map(([reason, number]) => reason + " " + count(number));
    return count(sum(dropped)) + " dropped" + (reasons.length > 0 ? " (" + reasons.join(", ") + ")" : "");
  };
  const counts = (one, names) => names.filter(([name, , always]) => always || one[name] > 0)
    .map(([name, text]) => count(one[name]) + " " + text);
  const TRAPS = [["sent", "sent", true], ["waiting", "waiting", true], ["held", "held"], ["suppressed", "suppressed"],
                 ["filtered", "of another type"], ["shortened", "shortened"], ["heartbeats", "heartbeats"]];
  const INFORMS = [["acknowledged", "acknowledged", true], ["waiting", "waiting", true], ["sent", "sent", true],
                   ["resent", "repetitions"], ["filtered", "of another type"], ["shortened", "shortened"]];
  const resolved = one => one.resolved_address && one.resolved_address !== one.address ? " (" + one.resolved_address + ")" : "";
  const destination = (title, one, good, details, names) => make("li", {},
    make("p", {class: "head"}, make("span", {class: "title"}, title), make("span", {}, "SNMPv" + (one.version === 2 ? "2c" : one.version)),
         make("span", {class: good.includes(one.state) ? "good" : "trouble"}, one.state)),
    make("p", {class: "numbers"}, counts(one, names).concat(drops(one.dropped)).join(", ")),
    ...(details ? [make("p", {class: "faint text"}, details)] : []));

  const showDestinations = status => {
    const show = (list, items, none, build) => {
      fill(list, items.length > 0 ? items.slice(0, SHOWN) : [none], one => one === none ? make("li", {class: "faint"}, none) : build(one));
      if (items.length > SHOWN) list.append(make("li", {class: "faint"}, (items.length - SHOWN) + " more are not shown"));
    };
    const troubledFirst = good => (a, b) => good.includes(a.state) - good.includes(b.state);
    show(byId("destinations"), [...status.destinations].sort(troubledFirst(LISTED[0][3])), "There is none: no traps are sent.",
         one => destination(one.number + ": " + one.address + " port " + one.port + resolved(one), one, LISTED[0][3], one.reason, TRAPS));
    show(byId("informs"), [...status.informs].sort(troubledFirst(LISTED[1][3])), "None is configured.",
         one => destination(one.destination + resolved(one), one, LISTED[1][3],
                            one.last_failure ? one.last_failure + " at " + moment(one.last_failure_at) : "", INFORMS));
  };

  // Time to answer.

  const svg = (tag, attributes, text) => {
    const element = document.createElementNS(SVG, tag);
    for (const [name, value] of Object.entries(attributes)) element.setAttribute(name, value);
    if (text !== undefined) element.textContent = text;
    return element;
  };
  const WIDTH = 170, BARS = 32, HEIGHT = 72;
  const history = new Map();  // by name: the last figures, and the means of each look

  const bars = latency => {
    const group = svg("g", {});
    const numbers = latency.buckets.map((bucket, i) => bucket.count - (i > 0 ? latency.buckets[i - 1].count : 0));
    numbers.push(latency.count - (latency.buckets.length > 0 ? latency.buckets[latency.buckets.length - 1].count : 0));
    const step = WIDTH / numbers.length, highest = Math.max(1, ...numbers);
    numbers.forEach((number, i) => {
      const height = number > 0 ? Math.max(2, number / highest * BARS) : 0;
      group.append(svg("rect", {class: "bar", x: i * step + 1, y: BARS - height, width: step - 2, height}));
    });
    group.append(svg("line", {class: "axis", x1: 0, x2: WIDTH, y1: BARS, y2: BARS}));
    for (const i of [0, 6, 13, 19]) {
      const bucket = latency.buckets[i];
      const anchor = i === 0 ? "start" : i === 19 ? "end" : "middle";
      if (bucket) group.append(svg("text", {x: i === 0 ? 0 : i === 19 ? WIDTH : (i + 0.5) * step, y: BARS + 10, "text-anchor": anchor}, short(bucket.seconds)));
    }
    return group;
  };
  const curve = means => {
    const group = svg("g", {});
    const highest = Math.max(...means.filter(mean => mean !== null)), top = BARS + 14;
    if (!isFinite(highest)) return group;
    const points = means.map((mean, i) => mean === null ? null
      : [WIDTH - (means.length - 1 - i) * WIDTH / (POINTS - 1), HEIGHT - 2 - mean / (highest || 1) * (HEIGHT - top - 8)]).filter(point => point !== null);
    group.append(svg("polyline", {class: "curve", points: (points.length > 1 ? points : [...points, ...points.map(([x, y]) => [x - 2, y])]).map(point => point.join(",")).join(" ")}));
    group.append(svg("text", {x: 0, y: HEIGHT - 4}, "mean to " + short(highest)));
    return group;
  };
  const chart = (name, latency) => {
    const before = history.get(name) || {count: latency.count, sum: latency.sum_seconds, means: [], figure: null, text: ""};
    const calls = latency.count - before.count;  // less than 0: of an agent that was started anew
    const means = [...before.means, calls > 0 ? Math.max(0, latency.sum_seconds - before.sum) / calls : null].slice(-POINTS);
    const drawing = svg("svg", {viewBox: "0 0 " + WIDTH + " " + HEIGHT, "aria-hidden": "true"});
    if (latency.count > 0) drawing.append(bars(latency), curve(means));
    const text = latency.count === 0 ? "none yet" : count(latency.count) + "; half within " + short(latency.p50_seconds) +
      ", 99 % " + short(latency.p99_seconds) + ", longest " + short(latency.max_seconds);
    history.set(name, {count: latency.count, sum: latency.sum_seconds, means});
    return make("figure", {}, make("figcaption", {}, name), make("p", {class: "faint numbers"}, text),
                ...(latency.count > 0 ? [drawing] : []));
  };
  let charted = 0;  // when that was last
  const showLatency = status => {
    charted = Date.now();
    byId("latency").replaceChildren(...status.requests.map(kind => chart(kind.kind, kind.latency)),
                                    chart("Backend calls", status.backend.latency));
  };

  // Alarms.

  const wanted = {levels: new Set(), limit: 100};
  const levelButtons = new Map(LEVELS.map(([level, sign]) => {
    const number = make("b", {}, "");
    const button = make("button", {type: "button", "aria-pressed": "false", class: level},
                        make("span", {"aria-hidden": "true"}, sign), make("span", {}, level), number);
    button.addEventListener("click", () => {
      if (!wanted.levels.delete(level)) wanted.levels.add(level);
      button.setAttribute("aria-pressed", String(wanted.levels.has(level)));
      look();
    });
    byId("levels").append(button);
    return [level, number];
  }));
  const alarmPath = () => {
    const filter = byId("filter").value.trim();
    return "/alarms.json?" + byId("order").value + "&limit=" + wanted.limit +
      (filter ? "&filter=" + encodeURIComponent(filter) : "") + (wanted.levels.size > 0 ? "&level=" + [...wanted.levels].join(",") : "");
  };
  const alarm = one => make("li", {},
    make("p", {class: "head"}, levelOf(one.level), make("span", {class: "title text"}, one.title), when(one.raised),
         make("span", {class: "faint numbers"}, "alarm " + one.number + ", serial number " + one.serial)),
    ...[["", one.location], ["", one.detail], ["What to do: ", one.advice]].filter(([, text]) => text !== "")
      .map(([title, text]) => make("p", {class: "text"}, title + text)));

  const showCounts = ({agent, alarms}) => {
    for (const [level, number] of levelButtons) say(number, count(alarms.by_level[level]));
    const {critical, major} = alarms.by_level;
    const text = (critical > 0 ? critical + " critical, " : "") + (major > 0 ? major + " major, " : "");
    const title = (text ? text.slice(0, -2) + " \u2013 " : "") + cut(agent.system_name);
    if (document.title !== title) document.title = title;
    say(byId("system"), cut(agent.system_name));
  };
  const showAlarms = (listed, status) => {
    const {rows, matching, alarms} = listed;
    const unlisted = status.alarms.active - rows;
    if (listed.read === null) {
      say(byId("found"), listed.fault ? "" : "The agent reads its alarms.");
    } else {
      say(byId("found"), rows === 0 ? "No alarm is active." : (matching < rows ? count(matching) + " of " : "") + plural(rows, "alarm", "alarms") +
          (alarms.length < matching ? "; the first " + count(alarms.length) + " are shown" : "") +
          (unlisted > 0 && !listed.stale ? "; " + count(unlisted) + " more have no text and are only counted" : ""));
    }
    const since = listed.read === null ? "" : " This is the list of " + moment(listed.read) + ".";
    say(byId("unread"), listed.fault ? cut("The alarms cannot be read now: " + listed.fault + "." + since) : "");
    fill(byId("list"), alarms, alarm);
    byId("more").hidden = alarms.length >= matching || wanted.limit >= MOST;
  };

  // Notifications.

  // An alarm's traps of one change stand together.
  const grouped = notifications => {
    const groups = [];
    for (const {number, time, trap, destinations, because, ...event} of notifications) {
      const sent = trap + " trap to " + (destinations.join(", ") || "nobody") + (because ? " (" + because + ")" : "");
      const last = groups[groups.length - 1];
      if (last && JSON.stringify(last.event) === JSON.stringify(event) && !last.sent.includes(sent)) {
        last.sent.push(sent);
      } else {
        groups.push({event, time, number, sent: [sent]});
      }
    }
    return groups;
  };
  const notification = ({event, time, sent}) => make("li", {},
    make("p", {class: "head"}, when(time), make("span", {class: "title"}, event.kind === "raise" ? "raised" : "cleared"),
         levelOf(event.level), make("span", {class: "faint numbers"}, "serial number " + event.serial + "; " + sent.join("; "))),
    make("p", {class: "text"}, event.text));
  const showNotifications = (listed, status) => {
    const none = status.notification_log.kept === 0 ? "The notification log is off." : "None was sent.";
    say(byId("notifications-fault"), listed.fault ? cut("The log cannot be read: " + listed.fault) : listed.notifications.length === 0 ? none : "");
    fill(byId("notifications"), grouped(listed.notifications), notification);
  };

  // Asking.

  const answers = new Map();  // by path without its query: the last one with its tag
  const ask = async path => {
    const [name] = path.split("?");
    const known = answers.get(name);
    const control = new AbortController();
    const timer = setTimeout(() => control.abort(), PATIENCE);
    try {
      const headers = known && known.path === path && known.tag ? {"If-None-Match": known.tag} : {};
      const answer = await fetch(path, {headers, cache: "no-store", credentials: "omit", redirect: "error", signal: control.signal});
      if (answer.status === 304) return known.data;
      if (!answer.ok) throw new Error(name + ": " + answer.status);
      const data = await answer.json();
      answers.set(name, {path, tag: answer.headers.get("ETag"), data});
      return data;
    } finally {
      clearTimeout(timer);
    }
  };

  let seen = null;      // when the agent answered last
  let missing = null;   // since when it does not
  let logged = "";      // which notifications are shown
  let version = null;   // of the agent that this page is of
  let running = false, again = false, timer = 0;

  const turn = async () => {
    const path = alarmPath();
    const status = await ask("/status.json");
    version = version || status.agent.version;
    if (version !== status.agent.version) location.reload();
    showVerdict(status);
    showBackend(status);
    showCounts(status);
    showDestinations(status);
    const alarms = await ask(path);
    if (path === alarmPath()) showAlarms(alarms, status);
    const written = [status.agent.pid, status.notification_log.written, status.notification_log.kept].join();
    if (written !== logged) showNotifications(await ask("/notifications.json"), status);
    logged = written;
    if (Date.now() - charted > INTERVAL / 2) showLatency(status);
    return alarms.stale && !alarms.fault ? SOON : INTERVAL;
  };
  const look = async () => {
    if (running) {
      again = true;
      return;
    }
    running = true;
    again = false;
    clearTimeout(timer);
    let pause = INTERVAL;
    try {
      pause = await turn();
      seen = new Date();
      missing = null;
    } catch (error) {
      missing = missing || new Date();
    }
    document.body.classList.toggle("gone", missing !== null);
    if (missing !== null) say(byId("verdict"), "");
    say(byId("gone"), missing === null ? "" : "The agent has not answered since " + clock(missing) +
        (seen === null ? "." : ": all figures are of " + clock(seen) + "."));
    running = false;
    if (again) {
      look();
    } else if (!document.hidden) {
      timer = setTimeout(look, pause);
    }
  };

  let typing = 0;
  byId("tools").addEventListener("submit", event => event.preventDefault());
  byId("filter").addEventListener("input", () => {
    clearTimeout(typing);
    typing = setTimeout(look, TYPING);
  });
  byId("order").addEventListener("change", look);
  byId("more").addEventListener("click", () => {
    wanted.limit = Math.min(MOST, wanted.limit * 2);
    look();
  });
  document.addEventListener("keydown", event => {
    if (event.ctrlKey || event.altKey || event.metaKey) return;
    if (event.key === "/" && !["INPUT", "SELECT"].includes(document.activeElement.tagName)) {
      event.preventDefault();
      byId("filter").focus();
    } else if (event.key === "Escape" && byId("filter").value !== "") {
      byId("filter").value = "";
      look();
    }
  });
  document.addEventListener("visibilitychange", () => {
    if (document.hidden) {
      clearTimeout(timer);
    } else {
      look();
    }
  });
  look();
})();

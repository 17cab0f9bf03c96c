// The catalogue as one HTML page that needs no network. Its policy lets in its own style and script, by their hashes,
// and nothing else: a text that were taken for markup could still do nothing.
#include <fmt/format.h>

#include <set>
#include <string>
#include <string_view>

#include "tools/export/catalogue.h"
#include "tools/export/formats.h"
#include "tools/export/plain_text.h"

namespace vrx {

namespace {

constexpr const char* STYLE = R"(
:root { color-scheme: light dark; --text: #1b1f24; --faint: #57606a; --back: #fff; --raised: #f4f6f8; --line: #c9d1d9; --link: #0550ae; --mark: #fff3c4; }
@media (prefers-color-scheme: dark) {
  :root { --text: #e6edf3; --faint: #9aa5b1; --back: #0d1117; --raised: #171d26; --line: #3a434e; --link: #79b8ff; --mark: #3b3113; }
}
* { box-sizing: border-box; }
html { scroll-padding-top: 7rem; }
body { margin: 0; color: var(--text); background: var(--back); font: 1rem/1.5 system-ui, sans-serif; overflow-wrap: anywhere; }
header, main { max-width: 60rem; margin: 0 auto; padding: 0 1rem; }
h1 { margin: 1rem 0 0; }
h2 { margin: 0; font-size: 1.2rem; }
a { color: var(--link); }
:focus-visible { outline: 3px solid var(--link); outline-offset: 2px; }
.skip { position: absolute; left: -100rem; }
.skip:focus { left: 1rem; top: 1rem; z-index: 2; padding: .5rem; background: var(--back); }
#tools { position: sticky; top: 0; z-index: 1; background: var(--back); border-bottom: 1px solid var(--line); }
#tools div { display: flex; flex-wrap: wrap; gap: .5rem 1rem; align-items: center; max-width: 60rem; margin: 0 auto; padding: .6rem 1rem; }
#search { flex: 1 1 12rem; min-width: 0; padding: .4rem .6rem; font: inherit; color: inherit; background: var(--raised); border: 1px solid var(--line); border-radius: .3rem; }
section, article { margin: 1rem 0; padding: 1rem; background: var(--raised); border: 1px solid var(--line); border-radius: .4rem; }
#alarms { padding: 0; background: none; border: 0; }
article:target, article:has(:target) { background: var(--mark); }
article h2 a { color: inherit; text-decoration: none; }
article h2 a:hover { text-decoration: underline; }
.names { display: flex; flex-wrap: wrap; gap: 0 1rem; margin: .2rem 0 .6rem; color: var(--faint); font-size: .9rem; }
dl { display: grid; grid-template-columns: 9rem 1fr; gap: .3rem 1rem; margin: 0; }
dt { color: var(--faint); }
dd { margin: 0; white-space: pre-line; }
dd, h2 a, td { unicode-bidi: isolate; }
table { border-collapse: collapse; }
th, td { padding: .1rem .8rem .1rem 0; text-align: left; vertical-align: top; white-space: normal; }
th { font-weight: 600; }
@media (max-width: 36rem) { dl { grid-template-columns: 1fr; gap: 0; } dd { margin-bottom: .5rem; } }
@media print {
  :root { color-scheme: light; --text: #000; --faint: #333; --back: #fff; --raised: #fff; --line: #999; --link: #000; --mark: #fff; }
  #tools, .skip { display: none; }
  body { font-size: 10pt; }
  article, section:not(#alarms) { break-inside: avoid; }
}
)";

constexpr const char* SCRIPT = R"(
"use strict";
(() => {
  const box = document.getElementById("search");
  const found = document.getElementById("found");
  const alarms = Array.from(document.querySelectorAll("article"));
  const texts = alarms.map(alarm => alarm.textContent.toLowerCase());
  const filter = () => {
    const words = box.value.toLowerCase().split(/\s+/).filter(word => word !== "");
    let count = 0;
    alarms.forEach((alarm, i) => {
      alarm.hidden = !words.every(word => texts[i].includes(word));
      if (!alarm.hidden) ++count;
    });
    found.textContent = count + " of " + alarms.length + " alarms";
  };
  const show = () => {
    const target = document.getElementById(location.hash.slice(1).replace(/^\./, ""));
    const alarm = target === null ? null : target.closest("article");
    if (alarm === null) return;
    if (alarm.hidden) {
      box.value = "";
      filter();
    }
    alarm.scrollIntoView();
  };
  box.addEventListener("input", filter);
  document.addEventListener("keydown", event => {
    if (event.key === "/" && document.activeElement !== box && !event.ctrlKey && !event.altKey && !event.metaKey) {
      event.preventDefault();
      box.focus();
    } else if (event.key === "Escape") {
      box.value = "";
      filter();
    }
  });
  window.addEventListener("hashchange", show);
  document.getElementById("tools").hidden = false;
  filter();
  show();
})();
)";

// SHA-256 of the two texts above, in base64; tests/e2e/export_test.py tells those that are right.
constexpr const char* STYLE_HASH = "KVXLsahDx9EoZeoHcfy9zUeQehjDi2xLD952I6l8ZHA=";
constexpr const char* SCRIPT_HASH = "NlSNnz7006I8HegOTkumbSYIuPV057r82OaMWDrD2Zs=";

constexpr const char* PAGE_HEAD = R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; style-src 'sha256-{style_hash}'; script-src 'sha256-{script_hash}'; base-uri 'none'; form-action 'none'">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>Alarms of the storage system</title>
<style>{style}</style>
</head>
<body>
<a class="skip" href="#alarms">To the alarms</a>
<header>
<h1>Alarms of the storage system</h1>
<p>{count} alarms, revision of {date}. In texts, [N] stands for parameter N.</p>
</header>
<div id="tools" role="search" hidden><div>
<label for="search">Search</label>
<input id="search" type="search" autocomplete="off" spellcheck="false" aria-describedby="keys">
<output id="found" for="search"></output>
<span id="keys">/ to search, Esc for all</span>
</div></div>
<main>
<section id="levels" aria-labelledby="levels-title">
<h2 id="levels-title">Levels</h2>
<p>A definition has no level: each event has its own. A notification carries it in binding 6, and in binding 11 whether the alarm is active.</p>
<table>
<tr><th scope="row">Binding 6</th><td>1 critical</td><td>2 major</td><td>3 minor</td><td>4 warning</td></tr>
<tr><th scope="row">Binding 11</th><td>1 active</td><td>2 cleared</td><td>3 event</td><td></td></tr>
</table>
</section>
<section id="alarms" aria-label="Alarms">
)";

constexpr const char* PAGE_TAIL = R"(</section>
</main>
<script>{script}</script>
</body>
</html>
)";

std::string row(const char* label, const std::string& html) {
    return fmt::format("<dt>{}</dt><dd>{}</dd>\n", label, html);
}

std::string pairs(const std::vector<CodedText>& texts) {
    std::string list;
    for (const CodedText& text : texts)
        list += fmt::format("{}{} = {}", list.empty() ? "" : "; ", markupText(text.code), markupText(text.text));
    return list;
}

// A table where some are codes or are shown as other texts, else their positions.
std::string parametersHtml(const CatalogueAlarm& alarm, const Catalogue& catalogue) {
    bool hasTexts = false;
    std::string positions;
    std::string table =
        "<table><tr><th scope=\"col\">N</th><th scope=\"col\">Code</th><th scope=\"col\">Shown as</th></tr>";
    for (const CatalogueParameter& parameter : alarm.parameters) {
        std::string codes;
        if (!parameter.enumeration.empty()) {
            codes = markupText(parameter.enumeration);
            const auto type = catalogue.enumerations.find(parameter.enumeration);
            if (type != catalogue.enumerations.end()) codes += ": " + pairs(type->second);
        }
        hasTexts = hasTexts || !codes.empty() || !parameter.shownAs.empty();
        positions += fmt::format("{}{}", positions.empty() ? "" : ", ", parameter.position);
        table += fmt::format("<tr><td>{}</td><td>{}</td><td>{}</td></tr>", parameter.position, codes,
                             pairs(parameter.shownAs));
    }
    return hasTexts ? table + "</table>" : positions;
}

// An id of HTML; none where another alarm has it, which lint tells.
std::string idAttribute(const std::string& id, std::set<std::string>& ids) {
    return ids.insert(id).second ? fmt::format(" id=\"{}\"", markupText(id)) : "";
}

std::string articleOf(const CatalogueAlarm& alarm, const Catalogue& catalogue, std::set<std::string>& ids) {
    const std::string number = std::to_string(alarm.number);
    std::string html = fmt::format("<article{}>\n<h2><a href=\"#{}\">{}</a></h2>\n", idAttribute(number, ids), number,
                                   markupText(alarm.title));
    html += fmt::format(
        "<p class=\"names\"><span>number {}</span> <span>identifier {}</span> <span>{}</span> "
        "<span{}>{}</span></p>\n<dl>\n",
        number, alarm.identifier, alarm.notification, idAttribute(alarm.oid, ids), markupText(alarm.oid));
    html += row("What happened", markupText(alarm.sample.detail));
    html += row("Where", markupText(alarm.sample.location));
    html += row("Cause", markupText(alarm.cause));
    html += row("What to do", markupText(alarm.sample.advice));
    html += row("Level", "<a href=\"#levels\">that of the event</a>");
    if (!alarm.isInTable) html += row("Alarm table", "never has a row of it");
    if (!alarm.parameters.empty()) html += row("Parameters", parametersHtml(alarm, catalogue));
    return html + "</dl>\n</article>\n";
}

// "2024-11-21" of "202411210000Z".
std::string dateOf(const std::string& revision) {
    return fmt::format("{}-{}-{}", revision.substr(0, 4), revision.substr(4, 2), revision.substr(6, 2));
}

}  // namespace

std::vector<ExportFile> catalogueFiles(const Catalogue& catalogue) {
    std::string page = fmt::format(PAGE_HEAD, fmt::arg("style_hash", STYLE_HASH), fmt::arg("script_hash", SCRIPT_HASH),
                                   fmt::arg("style", STYLE), fmt::arg("count", catalogue.alarms.size()),
                                   fmt::arg("date", dateOf(catalogue.revision)));
    std::set<std::string> ids;
    for (const CatalogueAlarm& alarm : catalogue.alarms) page += articleOf(alarm, catalogue, ids);
    page += fmt::format(PAGE_TAIL, fmt::arg("script", SCRIPT));
    return {{"vrx-alarms.html", page}};
}

}  // namespace vrx

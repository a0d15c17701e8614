#include "qd-repo/page.h"

#include <cmath>
#include <map>
#include <string_view>

#include "Updater/rollout/slot.h"
#include "tufrepo/Repository.h"

namespace {

constexpr const char* kHead = R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>Releases</title>
<style>
:root { color-scheme: light dark; }
body { font: 16px/1.5 system-ui, sans-serif; margin: 0 auto; max-width: 60rem; padding: 1rem; }
h1 { font-size: 1.6rem; margin: 0; }
h2 { font-size: 1.2rem; margin: 2rem 0 .5rem; }
p { margin: .25rem 0; }
table { border-collapse: collapse; width: 100%; }
th, td { text-align: left; padding: .4rem .8rem .4rem 0; border-bottom: 1px solid #8884;
  vertical-align: top; }
th { font-weight: 600; }
code { font: .85em/1.4 ui-monospace, monospace; overflow-wrap: anywhere; }
meter { width: 6rem; vertical-align: middle; }
.halted { color: #c22; font-weight: 600; }
.quiet { opacity: .75; }
@media (max-width: 40rem) {
  thead { position: absolute; clip-path: inset(50%); }
  tr { display: block; border-bottom: 1px solid #8888; padding: .4rem 0; }
  td { display: flex; gap: .5rem; border: 0; padding: .1rem 0; }
  td::before { content: attr(data-of); flex: 0 0 6rem; opacity: .75; }
  td > span, td > code { min-width: 0; }
}
</style>
</head>
<body>
)";

std::string escaped(std::string_view text) {
  std::string html;
  for (const char c : text) {
    switch (c) {
      case '&':
        html += "&amp;";
        break;
      case '<':
        html += "&lt;";
        break;
      case '"':
        html += "&quot;";
        break;
      default:
        html += c;
    }
  }
  return html;
}

/// A cell, which on a narrow screen is a line of its own with the column's name before it.
std::string cell(const char* column, const std::string& html) {
  return std::string("<td data-of=\"") + column + "\"><span>" + html + "</span></td>";
}

std::string tableHead(std::initializer_list<const char*> columns) {
  std::string html = "<table>\n<thead><tr>";
  for (const char* const column : columns) html += std::string("<th>") + column + "</th>";
  return html + "</tr></thead>\n<tbody>\n";
}

constexpr const char* kTableEnd = "</tbody>\n</table>\n";

std::string percentText(double share) { return std::to_string(std::lround(share * 100)) + " %"; }

std::string shareCell(const Release& release, const Ramp& ramp, UnixTime now) {
  if (release.halted) return "<span class=\"halted\">halted</span>";
  const std::string share = std::to_string(std::lround(shareAt(ramp, now) * 100));
  return "<meter min=\"0\" max=\"100\" value=\"" + share + "\"></meter> " +
         escaped(shareText(ramp, now));
}

std::string releaseRow(const ListedRelease& listed, const Ramp& ramp, UnixTime now) {
  const Release& release = listed.release;
  const std::string platform = std::string(utils::agentArchToString(release.arch)) + ", " +
                               utils::agentDistribToString(release.kind);
  return "<tr>" +
         cell("Version", "<strong>" + escaped(versionText(release.version)) + "</strong>") +
         cell("Platform", platform) + cell("Share", shareCell(release, ramp, now)) +
         cell("Package", "<a href=\"" + escaped(listed.path) + "\">" + escaped(nameOf(listed)) +
                             "</a><br><code class=\"quiet\">" + listed.sha256 + "</code>") +
         "</tr>\n";
}

std::string channelTables(const std::vector<ListedRelease>& releases, UnixTime now) {
  std::map<std::string, std::string> rows;
  for (const ListedRelease& listed : releases) {
    for (const auto& [channel, ramp] : listed.release.channels) {
      rows[channel] += releaseRow(listed, ramp, now);
    }
  }
  std::string html;
  for (const auto& [channel, text] : rows) {
    html += "<h2>Channel " + escaped(channel) + "</h2>\n" +
            tableHead({"Version", "Platform", "Share", "Package"}) + text + kTableEnd;
  }
  return html.empty() ? "<p>No release has been published yet.</p>\n" : html;
}

std::string keyTable(const tufrepo::Repository& repository) {
  std::string html =
      "<h2>Metadata and keys</h2>\n" + tableHead({"Role", "Valid until", "Signatures", "Key ids"});
  for (const std::string& name : tufrepo::topRoles()) {
    const tuf::RoleKeys& role = repository.root().roles.at(name);
    std::string ids;
    for (const std::string& id : role.keyIds) {
      ids += (ids.empty() ? "<code>" : "<br><code>") + escaped(id) + "</code>";
    }
    html += "<tr>" + cell("Role", name) +
            cell("Valid until", tufrepo::timeText(repository.expiryOf(name))) +
            cell("Signatures",
                 std::to_string(role.threshold) + " of " + std::to_string(role.keyIds.size())) +
            cell("Key ids", ids) + "</tr>\n";
  }
  return html + kTableEnd;
}

}  // namespace

std::string shareText(const Ramp& ramp, UnixTime now) {
  const UnixTime end = ramp.start + std::chrono::seconds(std::llround(ramp.hours * 3600));
  if (now < ramp.start) return percentText(ramp.percent / 100) + " from " + utcText(ramp.start);
  std::string share = percentText(shareAt(ramp, now));
  if (now >= end) return share;
  return share + ", to " + percentText(ramp.percent / 100) + " until " + utcText(end);
}

std::string pageOf(const tufrepo::Repository& repository,
                   const std::vector<ListedRelease>& releases, std::time_t now) {
  return std::string(kHead) + "<h1>Releases</h1>\n<p class=\"quiet\">As of " +
         tufrepo::timeText(now) +
         ". What counts is the signed metadata; this page is for the eye.</p>\n" +
         channelTables(releases, UnixTime(std::chrono::seconds(now))) + keyTable(repository) +
         "</body>\n</html>\n";
}

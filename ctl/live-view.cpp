#include "ctl/live-view.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <ctime>
#include <iostream>

#include "ctl/rule-editor.h"
#include "ctl/words.h"
#include "platform/process.h"

namespace tolven::ctl {
namespace {

constexpr int kFallbackColumns = 80, kFallbackRows = 24;
constexpr int kBarWidth = 20;
constexpr std::size_t kMostTransfers = 8, kMostWaiting = 3, kMostLines = 6;
constexpr const char* kClearLine = "\x1b[K";
constexpr const char* kClearBelow = "\x1b[J";

using Lines = std::vector<std::string>;

// At most `columns` characters, and none of them half.
std::string Cut(const std::string& line, int columns) {
  int count = 0;
  for (std::size_t i = 0; i < line.size(); ++i) {
    const bool begins = (static_cast<unsigned char>(line[i]) & 0xC0) != 0x80;
    if (begins && ++count > columns) return line.substr(0, i);
  }
  return line;
}

std::string Clock(const PObject& line) {
  const std::tm local = fmt::localtime(static_cast<std::time_t>(line["time"].asInt64()));
  return fmt::format("{:%H:%M:%S}", local);
}

std::string TransferText(const PObject& transfer) {
  return std::string(transfer["status"].asStringView()) + " " +
         Printable(transfer["path"].asStringView());
}

std::string Progress(const PObject& transfer) {
  const std::uint64_t done = transfer["progress"].asUInt64();
  const std::uint64_t total = transfer["total_size"].asUInt64();
  if (total == 0) return "comparing";  // hashes and deltas come before the first byte moves
  const double part = std::min(1.0, static_cast<double>(done) / static_cast<double>(total));
  const auto filled = static_cast<std::size_t>(part * kBarWidth);
  std::string bar(kBarWidth, '.');
  std::fill_n(bar.begin(), filled, '#');
  return fmt::format("[{}] {:3.0f}%  {} of {}  {}/s", bar, part * 100, SizeText(done),
                     SizeText(total), SizeText(transfer["speed"].asUInt64()));
}

void AddTransfers(const PObject& snapshot, Lines& lines) {
  const PObject::array_type& transfers = snapshot["transfers"].asArray();
  const PObject::array_type& waiting = snapshot["waiting"].asArray();
  if (transfers.empty() && waiting.empty()) return;
  lines.emplace_back();
  lines.emplace_back("Moving");
  for (std::size_t i = 0; i < std::min(transfers.size(), kMostTransfers); ++i) {
    lines.push_back("  " + TransferText(transfers[i]));
    lines.push_back("    " + Progress(transfers[i]));
  }
  std::size_t shown = 0;
  for (const PObject& file : waiting) {
    const bool is_moving = std::any_of(transfers.begin(), transfers.end(), [&file](const auto& t) {
      return t["path"].asStringView() == file["path"].asStringView();
    });
    if (is_moving || shown == kMostWaiting) continue;
    lines.push_back("  to sync " + Printable(file["path"].asStringView()));
    ++shown;
  }
}

// The last lines of a list, newest last.
void AddLast(const char* title, const PObject& list, Lines& lines) {
  const PObject::array_type& all = list.asArray();
  if (all.empty()) return;
  lines.emplace_back();
  lines.emplace_back(title);
  const std::size_t first = all.size() > kMostLines ? all.size() - kMostLines : 0;
  for (std::size_t i = first; i < all.size(); ++i) {
    lines.push_back("  " + Clock(all[i]) + "  " + Printable(all[i]["text"].asStringView()));
  }
}

}  // namespace

std::string StateText(const PObject& session) {
  const std::string_view state = session["state"].asStringView();
  const std::uint64_t unfinished = session["unfinished_files"].asUInt64();
  if (state == "settled") return "up to date, settled";
  if (state == "uptodate") return "up to date so far, not settled yet";
  if (state == "syncing") return fmt::format("syncing, {} to go", unfinished);
  if (state == "disconnected") return "not connected to the server";
  if (state == "paused") return "paused";
  if (state == "unknown") return "the daemon does not answer";
  return "being added";
}

std::string SessionText(const PObject& session) {
  std::string text =
      fmt::format("[{}] {} <-> {}, view {}, {}: {}", session["session_id"].asUInt64(),
                  Printable(session["folder"].asStringView()),
                  Printable(session["server"].asStringView()), session["view_id"].asUInt64(),
                  Printable(session["remote_path"].asStringView()), StateText(session));
  if (session["read_only"].asBool()) text += ", read-only";
  if (!session["recursive"].asBool()) text += ", without folders";
  return text;
}

std::vector<std::string> LiveView::Picture(const PObject& snapshot, int columns, int rows) {
  Lines lines{"Tolven Hub                                       Ctrl-C stops it"};
  for (const PObject& session : snapshot["sessions"].asArray()) {
    lines.push_back(SessionText(session));
    if (!session["problem"].asStringView().empty()) {
      lines.push_back("    ! " + Printable(session["problem"].asStringView()));
    }
  }
  for (const PObject& connection : snapshot["connections"].asArray()) {
    if (connection["problem"].asStringView().empty()) continue;
    lines.push_back(fmt::format("    ! connection {}: {}", connection["connection_id"].asUInt64(),
                                Printable(connection["problem"].asStringView())));
  }
  AddTransfers(snapshot, lines);
  AddLast("Recent", snapshot["recent"], lines);
  AddLast("Conflicts and errors", snapshot["problems"], lines);
  if (lines.size() > static_cast<std::size_t>(rows)) lines.resize(static_cast<std::size_t>(rows));
  for (std::string& line : lines) line = Cut(line, columns);
  return lines;
}

std::vector<std::string> LiveView::Changes(const PObject& snapshot) {
  Lines changes;
  for (const PObject& session : snapshot["sessions"].asArray()) {
    std::string& last = states_[session["session_id"].asUInt64()];
    const std::string text = SessionText(session);
    if (text != last) changes.push_back(text);
    last = text;
  }
  std::map<std::string, std::string> running;
  for (const PObject& transfer : snapshot["transfers"].asArray()) {
    const std::string key =
        std::to_string(transfer["session_id"].asUInt64()) + transfer["path"].asString().str();
    const std::string text = TransferText(transfer);
    if (!transfers_.contains(key)) changes.push_back(text);
    running[key] = text;
  }
  transfers_ = std::move(running);
  for (const PObject& line : snapshot["lines"].asArray()) {
    if (line["number"].asUInt64() <= last_number_) continue;
    last_number_ = line["number"].asUInt64();
    changes.push_back(Printable(line["text"].asStringView()));
  }
  return changes;
}

void LiveView::Show(const PObject& snapshot) {
  if (on_terminal_) {
    Draw(snapshot);
    return;
  }
  for (const std::string& line : Changes(snapshot)) std::cout << line << '\n';
  std::cout.flush();
}

void LiveView::Draw(const PObject& snapshot) {
  int columns = kFallbackColumns, rows = kFallbackRows;
  (void)platform::process().TerminalSize(columns, rows);
  // The last column and row stay free: writing there moves the picture.
  const Lines lines = Picture(snapshot, columns - 1, rows - 1);
  std::string output;
  if (drawn_lines_ > 0) output += fmt::format("\x1b[{}A", drawn_lines_);
  for (const std::string& line : lines) output += line + kClearLine + "\n";
  output += kClearBelow;
  drawn_lines_ = static_cast<int>(lines.size());
  std::cout << output << std::flush;
}

}  // namespace tolven::ctl

// A reader for the tool's manual page, enough to compare it with the command
// table: the sections with their plain text, and the tagged paragraphs of the
// COMMANDS section. It knows the man macros and the escapes the page uses;
// anything else is kept as written, so a comparison shows it.
#pragma once

#include <cstddef>
#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace shipping {

struct ManualEntry {
  std::string tag;   // the tag line as it reads: "settings import <path>"
  std::string text;  // the paragraph, lines joined with single blanks
};

struct ManualPage {
  std::vector<std::string> header;             // the arguments of .TH
  std::vector<std::string> sections;           // .SH titles, in order
  std::map<std::string, std::string> texts;    // plain text of each section
  std::vector<ManualEntry> commands;           // the .TP paragraphs of COMMANDS
};

// The plain text of the section `title`; empty when the page has none.
inline std::string sectionText(const ManualPage& page, const std::string& title) {
  const auto found = page.texts.find(title);
  return found == page.texts.end() ? "" : found->second;
}

// Text with font changes and zero-width marks removed and the page's escapes
// (\- \e \(lq \(rq \(aq \~) replaced by their characters.
inline std::string plainText(std::string_view roff) {
  std::string out;
  for (std::size_t i = 0; i < roff.size(); ++i) {
    if (roff[i] != '\\' || i + 1 == roff.size()) {
      out += roff[i];
      continue;
    }
    const char escape = roff[++i];
    if (escape == 'f') {  // \fB, \f(CW, \f[BI]
      if (i + 1 < roff.size() && roff[i + 1] == '(') {
        i += 3;
      } else if (i + 1 < roff.size() && roff[i + 1] == '[') {
        i = roff.find(']', i);
        if (i == std::string_view::npos) i = roff.size();
      } else {
        ++i;
      }
    } else if (escape == '-') {
      out += '-';
    } else if (escape == 'e') {
      out += '\\';
    } else if (escape == '~') {
      out += ' ';
    } else if (escape == '(' && i + 2 < roff.size()) {
      const std::string_view name = roff.substr(i + 1, 2);
      if (name == "lq" || name == "rq") {
        out += '"';
      } else if (name == "aq") {
        out += '\'';
      } else {
        out.append("\\(").append(name);
      }
      i += 2;
    } else if (escape != '&') {
      out += '\\';
      out += escape;
    }
  }
  return out;
}

// The arguments of a macro line, double quotes grouping blanks.
inline std::vector<std::string> macroArguments(std::string_view line) {
  std::vector<std::string> arguments;
  std::size_t i = line.find(' ');
  while (i != std::string_view::npos && i < line.size()) {
    while (i < line.size() && line[i] == ' ') ++i;
    if (i == line.size()) break;
    std::size_t end;
    if (line[i] == '"') {
      end = line.find('"', i + 1);
      arguments.emplace_back(line.substr(i + 1, (end == std::string_view::npos ? line.size() : end) - i - 1));
      i = end == std::string_view::npos ? end : end + 1;
    } else {
      end = line.find(' ', i);
      arguments.emplace_back(line.substr(i, end == std::string_view::npos ? std::string_view::npos : end - i));
      i = end;
    }
  }
  return arguments;
}

// What a line prints: its text, or for a font macro its arguments (.B and .I
// join them with blanks, .BR and the other alternating ones without); nothing
// for the layout macros.
inline std::string printedText(std::string_view line) {
  if (line.empty() || (line[0] != '.' && line[0] != '\'')) return plainText(line);
  const std::string_view macro = line.substr(1, line.find(' ') == std::string_view::npos ? std::string_view::npos
                                                                                          : line.find(' ') - 1);
  const std::vector<std::string> arguments = macroArguments(line);
  std::string joined;
  if (macro == "B" || macro == "I" || macro == "SM") {
    for (const std::string& argument : arguments) joined += (joined.empty() ? "" : " ") + argument;
  } else if (macro.size() == 2 && std::string_view("BIR").find(macro[0]) != std::string_view::npos &&
             std::string_view("BIR").find(macro[1]) != std::string_view::npos) {
    for (const std::string& argument : arguments) joined += argument;
  }
  return plainText(joined);
}

inline void appendText(std::string& text, const std::string& more) {
  if (more.empty()) return;
  if (!text.empty()) text += ' ';
  text += more;
}

// Reads a page in the man macros.
inline ManualPage readManualPage(std::string_view source) {
  ManualPage page;
  std::istringstream lines{std::string(source)};
  std::string line;
  std::string section;
  ManualEntry* entry = nullptr;
  bool tagNext = false;
  while (std::getline(lines, line)) {
    if (line.starts_with(".\\\"")) continue;
    if (line.starts_with(".TH ")) {
      page.header = macroArguments(line);
    } else if (line.starts_with(".SH")) {
      std::string title;
      for (const std::string& word : macroArguments(line)) appendText(title, plainText(word));
      section = title;
      page.sections.push_back(section);
      entry = nullptr;
    } else if (line.starts_with(".SS")) {
      entry = nullptr;
    } else if (line == ".TP" && section == "COMMANDS") {
      page.commands.emplace_back();
      entry = &page.commands.back();
      tagNext = true;
    } else {
      const std::string text = printedText(line);
      appendText(page.texts[section], text);
      if (entry && tagNext) {
        entry->tag = text;
        tagNext = false;
      } else if (entry) {
        appendText(entry->text, text);
      }
    }
  }
  return page;
}

}  // namespace shipping

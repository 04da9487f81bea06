// Runs a program to its end.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "platform/process.h"
#include "support/temp-folder.h"

namespace tolven::test {

struct Outcome {
  int status = -1;     // of the exit; -1 when it did not start
  std::string output;  // standard output and standard error, with lines that end in "\n"
};

inline Outcome RunProgram(const std::vector<ustring>& words) {
  const TempFolder folder;
  Outcome outcome;
  platform::ChildProcess child;
  if (!platform::process().Spawn(words, folder / "output", child).ok()) return outcome;
  (void)platform::process().WaitForExit(child, -1, outcome.status);
  outcome.output = ReadFile(folder / "output");
  std::erase(outcome.output, '\r');
  return outcome;
}

// The words of a command line: split at blanks, those in single quotes kept.
inline std::vector<ustring> SplitWords(const std::string& line) {
  std::vector<ustring> words;
  std::string word;
  bool is_quoted = false, has_word = false;
  for (const char c : line + " ") {
    if (c == '\'') {
      is_quoted = !is_quoted;
      has_word = true;
    } else if (c != ' ' || is_quoted) {
      word += c;
      has_word = true;
    } else if (has_word) {
      words.emplace_back(word);
      word.clear();
      has_word = false;
    }
  }
  return words;
}

// The program with the words of a line.
inline Outcome RunLine(const std::string& program, const std::string& line) {
  std::vector<ustring> words = SplitWords(line);
  words.insert(words.begin(), ustring(program));
  return RunProgram(words);
}

}  // namespace tolven::test

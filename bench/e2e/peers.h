// Other programs that bring a folder to another place of this machine: those that it has.
#pragma once

#include <string>

namespace tolven {

class Peers {
 public:
  // They copy `from` into places of their own below `work`, and keep their state there.
  Peers(std::string from, std::string work);

  // Lets each bring its copy up to date and prints the time until that was on the disk.
  void Run(const std::string& what) const;
  // The same without a word.
  void Prepare() const;

 private:
  struct Peer {
    const char* program;
    std::string title, command;
  };
  void RunAll(const std::string* what) const;

  const std::string from_, work_;
};

}  // namespace tolven

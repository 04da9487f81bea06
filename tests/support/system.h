// What tests ask of the system beside the platform's services; for each system a source of its own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace tolven::test {

// Sets a variable of the environment, for this process and the children to come.
void SetVariable(const char* name, const std::string& value);

// Makes an existing folder the user's local application data, likewise. Under wine only where its
// registry says so, as that of with_wine in .ci/tools.sh does.
void UseDataHome(const std::string& folder);

// Asks a program to end as its user would: by Ctrl-C, on Windows by logging off.
void AskToEnd(std::int64_t pid);
// Ends a program, whoever has started it.
void KillProgram(std::int64_t pid);

// Makes a symbolic link. False where the system makes none, as wine, or lets us make none.
[[nodiscard]] bool MakeLink(const std::string& target, const std::string& link);

// The path of something that is neither a file nor a folder; null where none has a path.
extern const char* const kDevice;

// Of the names in a tree that is as deep as tests can afford: short ones make a deep tree, which
// wine takes long to walk.
extern const std::size_t kNameLength;

// Whether a file's mode says who may use it.
bool HasModes();

// How many files, sockets and the like this process holds open.
std::size_t OpenHandles();

}  // namespace tolven::test

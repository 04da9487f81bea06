// How commands speak with the person in front of them, and with whoever carries them out.
#pragma once

#include <string>

#include "ctl/commands.h"
#include "protocol/object.h"

namespace tolven::ctl {

// One line on standard error. Gives 1, the exit status of a failed command.
int Fail(const std::string& error);

// Whether the person agrees. Without a terminal nobody does.
bool Confirm(const std::string& question);
// A line of standard input, after a prompt when that is a terminal.
std::string Ask(const std::string& prompt);

// The command that adds a folder. False with one line in `error`.
bool MakeAddCommand(const AddOptions& options, PObject& command, std::string& error);

// Has a command carried out by the resident tolvenctl or, when there is none, on the configuration
// alone. False with one line in `error`.
bool Execute(const PObject& command, PObject& answer, std::string& error);

}  // namespace tolven::ctl

// The hand at the instrument: turns, presses and unplugs what no library lets a program do.
#pragma once

#include <string>

#include "simulator/instrument.h"

namespace ostrel_simulator {

/// Runs one command, without its line end, and gives its answer: "ok", a text, or one that begins
/// with "error: ". README.md lists the commands.
/// Thread: any.
std::string RunControlCommand(Instrument& instrument, const std::string& command);

}  // namespace ostrel_simulator

extern "C" {

/// Runs one command on the instrument of this process; a null one is empty. The caller frees the
/// answer with `free`; null without memory for it.
/// Thread: any.
__attribute__((visibility("default"))) char* virtual_microscope_control(const char* command);
}

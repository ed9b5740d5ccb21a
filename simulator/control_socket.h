// The control's way in from outside of the process: a Unix socket, one command a line.
#pragma once

#include <string>

#include "simulator/instrument.h"

namespace ostrel_simulator {

/// Opens a listening socket at `path`, for this user alone; -1 on failure. One that a process left
/// behind is replaced, one that is in use is not.
int OpenControlSocket(const std::string& path);

/// Answers commands on a listening socket until the process ends, each client on a thread of its
/// own. Both arguments are held for ever. Where no thread can be had, the socket is closed.
void ServeControlSocket(int listener, Instrument& instrument);

}  // namespace ostrel_simulator

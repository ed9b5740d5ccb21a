#include "fuse_peer.h"

namespace ostrel_native::bench {

bool HasPeer() {
  return false;
}

Peer MakePeer(const FocusStack&) {
  return {};
}

}  // namespace ostrel_native::bench

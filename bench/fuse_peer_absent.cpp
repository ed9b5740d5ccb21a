#include "fuse_peer.h"

namespace ostrel_native::bench {

Peer MakePeer(const FocusStack&) {
  return {};
}

}  // namespace ostrel_native::bench

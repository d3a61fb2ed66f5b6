// Conversion steps that more than one family's conversions share. Internal to the library: not
// installed.
#pragma once

#include "vdigrpcrecords_desktop.h"

#include "client/client_core.pb.h"

namespace vdiconvert {

enum class ReconnectionTime { Read, Ignored };

// Every member of the policy from the wire: an absent group gives zeros and empty texts, not the
// record's defaults. The reconnection time is read only where the caller says so.
void grpc2ControlPolicy(const client::ControlPolicy& message, tagControlPolicy& policy, ReconnectionTime reconnection);

} // namespace vdiconvert

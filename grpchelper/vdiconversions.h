// Conversion steps that more than one family's conversions share. Internal to the library: not
// installed.
#pragma once

#include <QList>
#include <QString>

#include "vdidesktopgrpchelper.h"
#include "vdigrpcrecords.h"

#include "client/client_core.pb.h"

namespace vdiconvert {

enum class ReconnectionTime { Read, Ignored };

// Every member of the policy from the wire: an absent group gives zeros and empty texts, not the
// record's defaults. The reconnection time is read only where the caller says so.
void grpc2ControlPolicy(const client::ControlPolicy& message, tagControlPolicy& policy, ReconnectionTime reconnection);

// Texts of a repeated string field, as they stand.
template <class Repeated>
void appendTexts(const Repeated& items, QList<QString>& list)
{
    for (const std::string& item : items)
        list.append(VdiDesktopGrpcHelper::fromStdString(item));
}

} // namespace vdiconvert

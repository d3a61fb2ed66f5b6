// Protobuf messages filled and read by field path, for tests of the conversions: every field of
// a message gets a value of its own, so that a member read from the wrong field shows.
#pragma once

#include <QString>
#include <QStringList>

#include <google/protobuf/message.h>

namespace vditest {

// Gives every singular number and text of the message and of its sub-messages a value of its
// own, numbers counting up from `next`, and returns the paths of the numbers set
// ("share_policy.rdp_clipboard"); bools are set true. The paths of the texts and bools go to
// `others` if given. Repeated fields are left empty.
QStringList fillDistinct(google::protobuf::Message& message, int& next, const QString& prefix = QString(),
                         QStringList* others = nullptr);

// fillDistinct over the whole message: the paths of everything set, texts and bools included.
QStringList fillEverything(google::protobuf::Message& message);

// The single value at a path, as text: numbers in decimal, bools as "true" or "false", a repeated
// text field as its entries joined by '|'. A path that leads to no such field reads as a text
// that no member holds.
QString wireText(const google::protobuf::Message& message, const QString& path);

// The number at a path that fillDistinct returned; -1 for a path that is not there.
qint64 wireNumber(const google::protobuf::Message& message, const QString& path);

} // namespace vditest

// The field maps of the conversions: which record member goes to or comes from which wire field.
// One map serves both directions. A reply check fills every field of the message with a value of
// its own (two entries in every list), converts, and compares each member with its field; a
// request check gives every member a value of its own, converts, and compares each field with its
// member. Either way a field that no member maps is a mismatch, so a member read from the wrong
// field, a field left out and a field that the conversion invents all show.
#pragma once

#include <algorithm>
#include <functional>
#include <vector>

#include <QByteArray>
#include <QList>
#include <QMetaType>
#include <QString>
#include <QStringList>
#include <QtTest>

#include <google/protobuf/message.h>

#include "vdigrpcrecords.h"

namespace vditest {

QString shown(int value);
QString shown(qint64 value);
QString shown(bool value);
QString shown(const QString& value);
QString shown(const QList<QString>& value);
QString shown(const QByteArray& value);

// Gives a member a value made from `number` and returns what its wire field must then show.
QString give(int& member, int number);
QString give(qint64& member, int number);  // beyond 32 bits
QString give(bool& member, int number);
QString give(QString& member, int number);
QString give(QList<QString>& member, int number);
QString give(QByteArray& member, int number);

template <class Record>
struct Field {
    QString member;
    QString wire;  // empty: the conversion leaves the member as default construction made it
    std::function<QString(const Record&)> read;
    std::function<QString(Record&, int)> give;
    bool low32 = false;  // a 64-bit wire number of which the member keeps the low 32 bits
};

template <class Record>
using FieldMap = std::vector<Field<Record>>;

template <class Record, class Access>
Field<Record> makeField(const char* member, const char* wire, Access access, bool low32 = false)
{
    return {QLatin1String(member), QLatin1String(wire),
            [access](const Record& r) { return shown(access(const_cast<Record&>(r))); },
            [access](Record& r, int number) { return give(access(r), number); }, low32};
}

#define VDI_FIELD(Record, member, wire)                                                            \
    vditest::makeField<Record>(#member, wire, [](Record& r) -> auto& { return r.member; })
#define VDI_LOW32(Record, member, wire)                                                            \
    vditest::makeField<Record>(#member, wire, [](Record& r) -> auto& { return r.member; }, true)
#define VDI_KEPT(Record, member) VDI_FIELD(Record, member, "")

// The map of a part of the record (`access` picks it out), under the part's names with `member`
// and `wire` (and a dot) in front; either may be empty.
template <class Record, class Part, class Access>
FieldMap<Record> partOf(const FieldMap<Part>& part, const QString& member, const QString& wire, Access access)
{
    const QString memberDot = member.isEmpty() || member.endsWith(QLatin1Char('.')) ? member : member + '.';
    const QString wireDot = wire.isEmpty() || wire.endsWith(QLatin1Char('.')) ? wire : wire + '.';
    FieldMap<Record> map;
    for (const Field<Part>& field : part) {
        const auto read = field.read;
        const auto set = field.give;
        map.push_back({memberDot + field.member, field.wire.isEmpty() ? QString() : wireDot + field.wire,
                       [read, access](const Record& r) { return read(access(const_cast<Record&>(r))); },
                       [set, access](Record& r, int number) { return set(access(r), number); }, field.low32});
    }
    return map;
}

// The map of a list's first two entries, which is what a reply check fills: the record's entries
// from `first` on, a missing one read as a default entry.
template <class Record, class Entry, class Access>
FieldMap<Record> listOf(const FieldMap<Entry>& entry, const QString& member, const QString& wire, Access access,
                        int first = 0)
{
    FieldMap<Record> map;
    for (int i = 0; i < 2; ++i) {
        const int at = first + i;
        const auto entryAt = [access, at](Record& r) -> Entry& {
            QList<Entry>& list = access(r);
            while (list.size() <= at)
                list.append(Entry());
            return list[at];
        };
        const FieldMap<Record> one = partOf<Record>(entry, QStringLiteral("%1[%2]").arg(member).arg(at),
                                                    QStringLiteral("%1[%2]").arg(wire).arg(i), entryAt);
        map.insert(map.end(), one.begin(), one.end());
    }
    return map;
}

template <class Record>
FieldMap<Record> operator+(FieldMap<Record> map, const FieldMap<Record>& more)
{
    map.insert(map.end(), more.begin(), more.end());
    return map;
}

// The map without the named members.
template <class Record>
FieldMap<Record> without(FieldMap<Record> map, const QStringList& members)
{
    map.erase(std::remove_if(map.begin(), map.end(), [&](const Field<Record>& f) { return members.contains(f.member); }),
              map.end());
    return map;
}

#define VDI_PART(Record, member, wire, map)                                                        \
    vditest::partOf<Record>(map, QStringLiteral(#member), QStringLiteral(wire),                    \
                            [](Record& r) -> auto& { return r.member; })
#define VDI_LIST(Record, member, wire, map)                                                        \
    vditest::listOf<Record>(map, QStringLiteral(#member), QStringLiteral(wire),                    \
                            [](Record& r) -> auto& { return r.member; })

FieldMap<tagErrorData> errorMap();

// Every reply's error block.
template <class Record>
FieldMap<Record> withError(const FieldMap<Record>& map)
{
    return map + VDI_PART(Record, error, "error", errorMap());
}

// A reply's error block and the desktop's node, which only the handler fills.
template <class Record>
FieldMap<Record> withErrorAndNode(FieldMap<Record> map)
{
    map.push_back(VDI_KEPT(Record, vmNode.nodeId));
    map.push_back(VDI_KEPT(Record, vmNode.nodeName));
    map.push_back(VDI_KEPT(Record, vmNode.nodeIndex));
    return withError(map);
}

// ---- On the wire ---------------------------------------------------------------------------

// Gives every number and text of the message, of its sub-messages and of two entries of every
// list a value of its own; bools are set true; 64-bit numbers lie beyond 32 bits. Returns the
// paths set: "a.b", "list[1].name", and a list of numbers or texts by its own name.
QStringList fillEverything(google::protobuf::Message& message);

// The value at a path, as text: numbers in decimal, bools as "true" or "false", a list of
// numbers or texts as its entries joined by '|'. A path that leads to no field reads as a text
// that no member holds.
QString wireText(const google::protobuf::Message& message, const QString& path);

// Empty when every "path: value" of `expected` holds in the message (a text in quotes, a zero or
// an empty text too: a field left unset reads as its default), else what differs, a line each.
// Example: "name: 'u' client_base_info.vm_id: -1 pool_list[1].id: 0".
QString wireMismatch(const google::protobuf::Message& message, const QString& expected);

// Whether the path names a bool outside any list; setBool sets it true.
bool isBool(const google::protobuf::Message& message, const QString& path);
bool setBool(google::protobuf::Message& message, const QString& path);

// The paths of the fields that the message holds, sub-messages and list entries followed; a list
// of numbers or texts counts once.
QStringList setPaths(const google::protobuf::Message& message, const QString& prefix = QString());

// ---- The checks ----------------------------------------------------------------------------

namespace detail {
bool isDropped(const QString& path, const QStringList& dropped);
QString mismatch(const QString& member, const QString& got, const QString& expected);
QString low32Text(const QString& wire);
} // namespace detail

// Fills the message in full, converts it and compares every member with its field. `dropped`
// names the fields that no member may hold (a name ending in '.' stands for a whole
// sub-message). A flag of a new record is false, those named in `trueFlags` true. Then each
// bool of the map alone: its members turn true, every other bool's stay false. The mismatches
// are returned.
template <class Message, class Record>
QStringList replyMismatches(void (*from)(const Message&, Record&), const FieldMap<Record>& map,
                            const QStringList& dropped = {}, const QStringList& trueFlags = {})
{
    Message message;
    const QStringList filled = fillEverything(message);
    Record record;
    from(message, record);
    const Record untouched{};
    QStringList mismatches;
    QStringList unmapped = filled;
    for (const Field<Record>& field : map) {
        QString expected = field.read(untouched);
        if (!field.wire.isEmpty())
            expected = field.low32 ? detail::low32Text(wireText(message, field.wire)) : wireText(message, field.wire);
        if (field.read(record) != expected)
            mismatches << detail::mismatch(field.member, field.read(record), expected);
        unmapped.removeAll(field.wire);
    }
    for (const QString& path : filled) {
        if (!detail::isDropped(path, dropped))
            continue;
        unmapped.removeAll(path);
        for (const Field<Record>& field : map) {
            if (!isBool(message, path) && field.read(record) == wireText(message, path))
                mismatches << QStringLiteral("%1 holds the value of the dropped %2").arg(field.member, path);
        }
    }
    for (const QString& path : unmapped)
        mismatches << QStringLiteral("%1 fills no member").arg(path);

    for (const Field<Record>& field : map) {
        const QString flag = QLatin1String(trueFlags.contains(field.member) ? "true" : "false");
        if (isBool(message, field.wire) && field.read(untouched) != flag)
            mismatches << detail::mismatch(field.member + QStringLiteral(" of a new record"), field.read(untouched), flag);
    }
    for (const Field<Record>& one : map) {
        Message alone;
        if (!setBool(alone, one.wire))
            continue;
        Record converted;
        from(alone, converted);
        for (const Field<Record>& field : map) {
            if (!isBool(message, field.wire))
                continue;
            const QString expected = QLatin1String(field.wire == one.wire ? "true" : "false");
            if (field.read(converted) != expected)
                mismatches << detail::mismatch(field.member + QStringLiteral(" with only ") + one.wire + " set",
                                               field.read(converted), expected);
        }
    }
    return mismatches;
}

// Gives every member of the map a value of its own in `record`, converts, and compares every
// field with its member. Every other field that the conversion set must lie in one of `covered`
// (sub-messages that the test compares as a whole). The mismatches are returned.
template <class Record, class Message>
QStringList requestMismatches(void (*to)(const Record&, Message&), const FieldMap<Record>& map,
                              Record record = Record(), const QStringList& covered = {})
{
    QStringList expected;
    int number = 101;
    for (const Field<Record>& field : map)
        expected << field.give(record, number++);
    Message message;
    to(record, message);
    QStringList mismatches;
    QStringList unmapped = setPaths(message);
    for (size_t i = 0; i < map.size(); ++i) {
        const QString got = wireText(message, map[i].wire);
        if (got != expected.at(int(i)))
            mismatches << detail::mismatch(map[i].wire, got, expected.at(int(i)) + " of " + map[i].member);
        unmapped.removeAll(map[i].wire);
    }
    for (const QString& path : unmapped) {
        if (!detail::isDropped(path, covered))
            mismatches << QStringLiteral("%1 is set by no member").arg(path);
    }
    return mismatches;
}

// ---- The maps of the records that several families share ------------------------------------

FieldMap<tagBaseInfo> identityMap();  // the controller's identity; the gateway's lacks three
FieldMap<tagExtendInfo> extendMap();
FieldMap<tagVMOperator> vmOperatorMap();
FieldMap<tagControlPolicy> controlPolicyMap();
FieldMap<tagVMInfo> vmInfoMap();  // an operation's desktop (client::VmInfo)
FieldMap<tagPoolInfo> poolMap();  // a pool and its desktops (client::PoolInfo)

// A request's identity and extend info, in the sub-messages that the request names.
template <class Record>
FieldMap<Record> withIdentity(const FieldMap<Record>& map, const QString& wire = QStringLiteral("client_base_info"))
{
    return map + partOf<Record>(identityMap(), QStringLiteral("baseInfo"), wire, [](Record& r) -> auto& { return r.baseInfo; });
}

template <class Record>
FieldMap<Record> withExtend(const FieldMap<Record>& map, const QString& wire = QStringLiteral("client_extend_info"))
{
    return map + partOf<Record>(extendMap(), QStringLiteral("extendInfo"), wire, [](Record& r) -> auto& { return r.extendInfo; });
}

// A check as a row of a data-driven test.
using Check = std::function<QStringList()>;

} // namespace vditest

Q_DECLARE_METATYPE(vditest::Check)

namespace vditest {

// Rows of a data-driven test of Checks ("check" column).
template <class Message, class Record>
void replyRow(const char* name, void (*from)(const Message&, Record&), const FieldMap<Record>& map,
              const QStringList& dropped = {}, const QStringList& trueFlags = {})
{
    QTest::newRow(name) << Check([=] { return replyMismatches(from, map, dropped, trueFlags); });
}

template <class Record, class Message>
void requestRow(const char* name, void (*to)(const Record&, Message&), const FieldMap<Record>& map,
                const Record& record = Record(), const QStringList& covered = {})
{
    QTest::newRow(name) << Check([=] { return requestMismatches(to, map, record, covered); });
}

} // namespace vditest

// The body of a test whose rows are Checks.
#define VDI_RUN_CHECK()                                                                            \
    do {                                                                                           \
        QFETCH(vditest::Check, check);                                                             \
        const QStringList mismatches = check();                                                    \
        QVERIFY2(mismatches.isEmpty(), qPrintable(mismatches.join(QLatin1Char('\n'))));             \
    } while (false)

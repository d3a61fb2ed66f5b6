// Values for request records, read off the fuzzer's input; past its end every value is zero or
// empty, so that any input makes a complete record.
#pragma once

#include <cstddef>
#include <cstdint>

#include <QByteArray>
#include <QString>

namespace vdifuzz {

class ByteReader
{
public:
    ByteReader(const uint8_t* data, size_t size) : m_data(data), m_size(size) {}

    bool atEnd() const { return m_pos >= m_size; }

    uint8_t byte() { return atEnd() ? 0 : m_data[m_pos++]; }

    uint64_t bits(int bytes)
    {
        uint64_t value = 0;
        for (int i = 0; i < bytes; ++i)
            value = (value << 8) | byte();
        return value;
    }
    int32_t int32() { return static_cast<int32_t>(static_cast<uint32_t>(bits(4))); }
    int64_t int64() { return static_cast<int64_t>(bits(8)); }

    // Raw bytes of a length given by the first byte (0..63).
    QByteArray bytes()
    {
        const size_t length = byte() % 64;
        const size_t available = m_pos < m_size ? m_size - m_pos : 0;
        const size_t taken = length < available ? length : available;
        QByteArray result(reinterpret_cast<const char*>(m_data + m_pos), static_cast<int>(taken));
        m_pos += taken;
        return result;
    }

    // A text, read in one of three ways that the low bits of a first byte choose: UTF-8 bytes
    // (invalid sequences included), UTF-16 code units (lone surrogates included), or ASCII.
    QString text()
    {
        const uint8_t mode = byte() % 3;
        const QByteArray raw = bytes();
        if (mode == 0)
            return QString::fromUtf8(raw);
        if (mode == 1) {
            QString units;
            for (int i = 0; i + 1 < raw.size(); i += 2)
                units.append(QChar(static_cast<ushort>((static_cast<uint8_t>(raw[i]) << 8) | static_cast<uint8_t>(raw[i + 1]))));
            return units;
        }
        QString ascii;
        for (char c : raw)
            ascii.append(QLatin1Char(static_cast<char>(c & 0x7f)));
        return ascii;
    }

private:
    const uint8_t* m_data;
    size_t m_size;
    size_t m_pos = 0;
};

} // namespace vdifuzz

// WireReader against a reader made of QDataStream, over random buffers: the same values at the same positions.
// SPDX-License-Identifier: Apache-2.0
#include <citp/citp_wire_p.h>
#include <gtest/gtest.h>

#include <QBuffer>
#include <QDataStream>

#include <cstring>
#include <memory>
#include <random>

namespace {
using CITP::WireReader;

/// The plain way to read a message: a little-endian stream over the whole buffer, texts taken at its position.
class StreamReader
{
public:
    StreamReader(const QByteArray& data, int offset) : m_data(data)
    {
        m_buffer.setData(data);
        EXPECT_TRUE(m_buffer.open(QIODevice::ReadOnly));
        m_stream.setDevice(&m_buffer);
        m_stream.setByteOrder(QDataStream::LittleEndian);
        m_stream.skipRawData(offset);
    }

    template <typename Integer>
    Integer integer()
    {
        Integer value = 0;
        m_stream >> value;
        return value;
    }

    QString ucs2()
    {
        QString text;
        for (bool first = true; m_data.size() - position() >= 2; first = false) {
            const auto unit = integer<quint16>();
            if (unit == 0)
                break;
            if (!first || unit != 0xfeff)
                text += QChar(unit);
        }
        return text;
    }

    QString text8()
    {
        QString text;
        while (position() < m_data.size()) {
            const auto unit = integer<quint8>();
            if (unit == 0)
                break;
            text += QChar(ushort(unit));
        }
        return text;
    }

    QString fixedText8(int count)
    {
        QString text;
        for (; count > 0; --count)
            text += QLatin1Char(static_cast<char>(integer<quint8>()));
        return text;
    }

    void skip(int count) { m_stream.skipRawData(count); }
    qint64 position() const { return m_buffer.pos(); }

private:
    const QByteArray m_data;
    QBuffer m_buffer;
    QDataStream m_stream;
};

QByteArray randomBuffer(std::mt19937& random)
{
    QByteArray data;
    // In some, texts run on over several of the blocks in which their end is looked for.
    const auto rarity = random() % 2 == 0 ? 6 : 60;
    for (auto length = random() % 200; length > 0; --length) {
        // Zero bytes and byte-order marks often enough for texts to end and to begin with them.
        const auto kind = random() % rarity;
        data.append(static_cast<char>(kind == 0 ? 0 : kind == 1 ? 0xff : kind == 2 ? 0xfe : random() & 0xff));
    }
    return data;
}

TEST(WireReader, ReadsWhatADataStreamReads)
{
    std::mt19937 random(20240607);
    for (int round = 0; round < 20000; ++round) {
        const QByteArray data = randomBuffer(random);
        const int offset = static_cast<int>(random() % 40);
        WireReader reader(data, offset);
        StreamReader stream(data, offset);
        ASSERT_EQ(reader.position(), stream.position());
        for (int step = 0; step < 12; ++step) {
            const auto kind = random() % 8;
            SCOPED_TRACE(testing::Message() << "round " << round << " step " << step << " kind " << kind);
            const int count = static_cast<int>(random() % 20);
            switch (kind) {
                case 0:
                    ASSERT_EQ(reader.u8(), stream.integer<quint8>());
                    break;
                case 1:
                    ASSERT_EQ(reader.u16(), stream.integer<quint16>());
                    break;
                case 2:
                    ASSERT_EQ(reader.u32(), stream.integer<quint32>());
                    break;
                case 3:
                    ASSERT_EQ(reader.u64(), stream.integer<quint64>());
                    break;
                case 4:
                    ASSERT_EQ(reader.ucs2(), stream.ucs2());
                    break;
                case 5:
                    ASSERT_EQ(reader.text8(), stream.text8());
                    break;
                case 6:
                    ASSERT_EQ(reader.fixedText8(count), stream.fixedText8(count));
                    break;
                default:
                    reader.skip(count);
                    stream.skip(count);
            }
            ASSERT_EQ(reader.position(), stream.position());
            ASSERT_EQ(reader.remaining(), data.size() - stream.position());
        }
    }
}

TEST(WireReader, UsesUpWhatIsLeftOfAnIntegerThatIsCutOff)
{
    const QByteArray data("\x01\x02\x03", 3);
    WireReader reader(data);
    EXPECT_EQ(reader.u32(), 0u);
    EXPECT_EQ(reader.position(), 3);
    EXPECT_EQ(reader.u8(), 0);
}

TEST(WireReader, StandsAtTheEndWhenItStartsBeyondIt)
{
    const QByteArray data("abc");
    WireReader reader(data, qint64(1) << 40);
    EXPECT_EQ(reader.position(), 3);
    EXPECT_EQ(reader.remaining(), 0);
    EXPECT_TRUE(reader.text8().isEmpty());
    EXPECT_TRUE(reader.ucs2().isEmpty());
    EXPECT_EQ(reader.position(), 3);
}

TEST(WireReader, NeverGoesBack)
{
    const QByteArray data("abc");
    WireReader reader(data, 2);
    reader.skip(-1);
    EXPECT_EQ(reader.position(), 2);
}

TEST(WireReader, ReadsARunAsItReadsItsFields)
{
    const QByteArray whole("\x01\x02\x03\x04\x05\x06\x07\x08\x09");
    for (int length = 0; length <= whole.size(); ++length) {
        SCOPED_TRACE(length);
        // Of exactly its length, for the sanitizer to see a look beyond.
        const auto exact = std::make_unique<char[]>(static_cast<std::size_t>(length));
        std::memcpy(exact.get(), whole.constData(), static_cast<std::size_t>(length));
        const QByteArray data = QByteArray::fromRawData(exact.get(), length);
        WireReader plain(data);
        const quint8 first = plain.u8();
        const quint32 second = plain.u32();
        const quint16 third = plain.u16();
        WireReader reader(data);
        reader.run<7>([&](auto& fields) {
            EXPECT_EQ(fields.u8(), first);
            EXPECT_EQ(fields.u32(), second);
            EXPECT_EQ(fields.u16(), third);
        });
        EXPECT_EQ(reader.position(), plain.position());
        EXPECT_EQ(length >= 7, third == 0x0706);
    }
}

TEST(WireReader, PassesNoMoreThanARunHasRead)
{
    const QByteArray data("\x01\x02\x03");
    WireReader reader(data);
    reader.run<3>([](auto& fields) { EXPECT_EQ(fields.u8(), 1); });
    EXPECT_EQ(reader.position(), 1);
}

TEST(FindZeroUnit, FindsTheFirstAtEveryAlignmentAndLength)
{
    for (int alignment = 0; alignment < 17; ++alignment)
        for (int units = 0; units <= 34; ++units)
            for (int zero = 0; zero <= units; ++zero) {
                SCOPED_TRACE(testing::Message() << "alignment " << alignment << ", unit " << zero << " of " << units);
                const auto bytes = std::make_unique<char[]>(static_cast<std::size_t>(alignment + 2 * units));
                char* const text = bytes.get() + alignment;
                // Units 0x0001 and 0x0100: every second pair of neighbouring bytes across units is zero.
                for (int unit = 0; unit < units; ++unit) {
                    text[2 * unit] = unit % 2 == 0 ? '\1' : '\0';
                    text[2 * unit + 1] = unit % 2 == 0 ? '\0' : '\1';
                }
                // One more behind the first, which must not be the one found; with zero == units there is none.
                for (int unit = zero; unit < units; unit += 3)
                    text[2 * unit] = text[2 * unit + 1] = '\0';
                ASSERT_EQ(CITP::findZeroUnit(text, text + 2 * units), text + 2 * zero);
            }
}

TEST(AppendInteger, WritesTheLowestByteFirst)
{
    QByteArray out("x");
    CITP::appendInteger(out, quint32(0x04030201));
    CITP::appendInteger(out, quint16(0x0605));
    CITP::appendInteger(out, quint8(7));
    EXPECT_EQ(out, QByteArray("x\x01\x02\x03\x04\x05\x06\x07"));
}
} // namespace

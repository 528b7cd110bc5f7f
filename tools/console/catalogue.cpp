// Requests for libraries and elements. Matches the answers to the requests.
// SPDX-License-Identifier: Apache-2.0
#include "catalogue.h"

#include <citp/citp_msg_msex_elements.h>
#include <citp/citp_msg_msex_requests.h>

#include <QSet>
#include <algorithm>
#include <optional>

#include "inbox.h"
#include "printing.h"

namespace Console {
namespace {
using CITP::citp_stack;

// The id of the root, the parent of the top-level libraries. MSEX 1.0 has no levels and does not send it.
const char* const Root = "0,0,0,0";

// Limits the recursion if a server lists a library below itself. Ids have no more levels than this.
constexpr int MaxDepth = 2;
// Limits the number of requests if a faulty server lists up to 16 million libraries.
constexpr std::size_t MaxLibraries = 65536;

constexpr int MaxSilentInARow = 2;

template <typename Content>
struct Answer
{
    std::optional<Content> content;
    QString remark; ///< about an answer that cannot be used
};

// The library does not parse the content of an answer in an unknown version.
QString unknownVersion(const CITP::Msg_MSEX& message)
{
    return QString("(an answer came in MSEX %1.%2, which is not supported)")
        .arg(message.versionMajor)
        .arg(message.versionMinor);
}

CITP::Msg_MSEX_ELIN requestLibraries(Session& session, quint8 type, const QString& parent)
{
    Inbox<Answer<CITP::Msg_MSEX_ELIN>> inbox;
    inbox.receiveFrom(session.key(), &citp_stack::libraryInfo,
                      [type](Answer<CITP::Msg_MSEX_ELIN>& answer, const CITP::Msg_MSEX_ELIN& message) {
                          if (message.LibraryType != type || answer.content)
                              return;
                          if (message.versionMinor > 2)
                              answer.remark = unknownVersion(message);
                          else
                              answer.content.emplace(message);
                      });
    session.send(CITP::Msg_MSEX_GELI(session.msexMinor(), type, parent, {}));
    session.waitFor(
        parent == Root ? QString("its libraries") : QString("the libraries below ") + parent,
        [&] { return inbox.state()->content.has_value(); }, [&] { return inbox.state()->remark; });
    return *inbox.state()->content;
}

// Missing fields of a truncated answer read as zero, which results in duplicate entries.
void warnAboutDuplicates(int count, const QString& what)
{
    if (count > 0)
        warn(QString("%1 lists %2 duplicates, which are ignored; the answer may be damaged")
                 .arg(what, QString::number(count)));
}

// Whether @p id has exactly one level more than @p parent and the same numbers on the parent's levels.
bool isChildOf(const QString& id, const QString& parent)
{
    const QStringList levels = id.split(',');
    const QStringList parentLevels = parent.split(',');
    const int depth = parentLevels.constFirst().toInt();
    return levels.constFirst().toInt() == depth + 1 && levels.mid(1, depth) == parentLevels.mid(1, depth);
}

class LibraryCollector
{
public:
    LibraryCollector(Session& session, quint8 type) : m_session(session), m_type(type) {}

    // Depth first, so that children follow their parent.
    void collect(const QString& parent, int depth)
    {
        int duplicates = 0;
        int unexpected = 0;
        const CITP::Msg_MSEX_ELIN answer = requestLibraries(m_session, m_type, parent);
        m_silentInARow = 0;
        for (const auto& info : answer.Libraries) {
            if (m_known.contains(info.LIBID)) {
                ++duplicates;
                continue;
            }
            // The top-level request has no parent to compare with.
            if (depth > 0 && !isChildOf(info.LIBID, parent)) {
                ++unexpected;
                continue;
            }
            if (m_list.libraries.size() >= MaxLibraries)
                throw Failure{
                    QString("%1 lists more than %2 libraries").arg(m_session.name(), QString::number(MaxLibraries))};
            m_known.insert(info.LIBID);
            m_list.libraries.push_back({info, depth});
            if (info.SubLibraryCount > 0 && depth < MaxDepth && m_silentInARow < MaxSilentInARow)
                collectBelow(info.LIBID, depth);
        }
        warnAboutDuplicates(duplicates, m_session.name());
        if (unexpected > 0)
            warn(QString("%1 lists %2 libraries that are not below %3, as requested; they are ignored")
                     .arg(m_session.name(), QString::number(unexpected), parent));
    }

    LibraryList takeList()
    {
        if (m_silent > 0)
            m_list.problem = QString("%1 did not list the sub-libraries of %2 libraries%3")
                                 .arg(m_session.name(), QString::number(m_silent),
                                      m_silentInARow < MaxSilentInARow ? "" : "; no more were requested");
        return std::move(m_list);
    }

private:
    void collectBelow(const QString& parent, int depth)
    {
        try {
            collect(parent, depth + 1);
        } catch (const NoAnswer& silence) {
            warn(silence.text);
            ++m_silent;
            ++m_silentInARow;
        }
    }

    Session& m_session;
    const quint8 m_type;
    LibraryList m_list;
    QSet<QString> m_known;
    int m_silent = 0;       ///< libraries that did not answer
    int m_silentInARow = 0; ///< since the last answer
};

void removeDuplicates(std::vector<Element>& elements, const QString& id)
{
    QSet<int> numbers;
    const auto isDuplicate = [&numbers](const Element& element) {
        const bool isKnown = numbers.contains(element.number);
        numbers.insert(element.number);
        return isKnown;
    };
    const auto before = elements.size();
    elements.erase(std::remove_if(elements.begin(), elements.end(), isDuplicate), elements.end());
    warnAboutDuplicates(static_cast<int>(before - elements.size()), "library " + id);
}

template <typename Item>
Element toElement(const Item& item, const QString& name)
{
    Element element;
    element.number = item.Number;
    element.dmxMin = item.DMXRangeMin;
    element.dmxMax = item.DMXRangeMax;
    element.name = name;
    element.serial = item.SerialNumber;
    return element;
}

ElementList toList(const CITP::Msg_MSEX_MEIN& message)
{
    ElementList list;
    for (const auto& item : message.Media) {
        Element element = toElement(item, item.Name);
        element.timestamp = item.Timestamp;
        element.width = item.Width;
        element.height = item.Height;
        element.length = item.Length;
        element.frameRate = item.FrameRate;
        list.elements.push_back(element);
    }
    return list;
}

ElementList toList(const CITP::Msg_MSEX_EEIN& message)
{
    ElementList list;
    list.kind = ElementList::Kind::Effects;
    for (const auto& item : message.Effects) {
        Element element = toElement(item, item.EffectName);
        for (const QString& parameter : item.ParameterNames)
            element.parameters << parameter;
        list.elements.push_back(element);
    }
    return list;
}

ElementList toList(const CITP::Msg_MSEX_GLEI& message)
{
    ElementList list;
    list.kind = ElementList::Kind::Generic;
    for (const auto& item : message.Elements) {
        Element element = toElement(item, item.Name);
        element.timestamp = item.Timestamp;
        list.elements.push_back(element);
    }
    return list;
}
} // namespace

QString libraryId(const QString& text, quint8 msexMinor)
{
    if (msexMinor > 0)
        return text.contains(',') ? text : QString("1,%1,0,0").arg(text);
    const QStringList levels = text.split(',');
    if (levels.size() == 1)
        return text;
    if (levels.at(0) == "1" && levels.at(2) == "0" && levels.at(3) == "0")
        return levels.at(1);
    throw Failure{
        QString("library %1: the server uses MSEX 1.0, which has top-level libraries only; give a number").arg(text)};
}

LibraryList fetchLibraries(Session& session, quint8 type)
{
    LibraryCollector collector(session, type);
    collector.collect(Root, 0);
    return collector.takeList();
}

ElementList fetchElements(Session& session, quint8 type, const QString& id)
{
    Inbox<Answer<ElementList>> inbox;
    // The server chooses which of the three messages it sends. The library id in it identifies the request.
    const auto handleAnswer = [id](Answer<ElementList>& answer, const auto& message) {
        if (answer.content)
            return;
        if (message.versionMinor > 2)
            answer.remark = unknownVersion(message);
        else if (message.LibraryId == id)
            answer.content = toList(message);
    };
    inbox.receiveFrom(session.key(), &citp_stack::mediaInfo, handleAnswer);
    inbox.receiveFrom(session.key(), &citp_stack::effectInfo, handleAnswer);
    inbox.receiveFrom(session.key(), &citp_stack::genericInfo, handleAnswer);
    session.send(CITP::Msg_MSEX_GEIN(session.msexMinor(), type, id, {}));
    session.waitFor(
        "the elements of library " + id, [&] { return inbox.state()->content.has_value(); },
        [&] { return inbox.state()->remark; });
    ElementList list = std::move(*inbox.state()->content);
    removeDuplicates(list.elements, id);
    return list;
}
} // namespace Console

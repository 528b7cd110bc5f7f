// Requests for libraries and elements. Matches the answers to the requests.
// SPDX-License-Identifier: Apache-2.0
#include "catalogue.h"

#include <citp/citp_msg_msex_elements.h>
#include <citp/citp_msg_msex_requests.h>

#include <QSet>
#include <algorithm>
#include <optional>

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

// The library does not parse the content of an answer in an unknown version.
QString unknownVersion(const CITP::Msg_MSEX& message)
{
    return QString("(an answer came in MSEX %1.%2, which is not supported)")
        .arg(message.versionMajor)
        .arg(message.versionMinor);
}

CITP::Msg_MSEX_ELIN requestLibraries(Session& session, quint8 type, const QString& parent)
{
    std::optional<CITP::Msg_MSEX_ELIN> answer;
    QString remark;
    QObject scope;
    QObject::connect(citp_stack::Get(), &citp_stack::libraryInfo, &scope,
                     [&](const QString& key, const CITP::Msg_MSEX_ELIN& message) {
                         if (key != session.key() || message.LibraryType != type || answer)
                             return;
                         if (message.versionMinor > 2)
                             remark = unknownVersion(message);
                         else
                             answer.emplace(message);
                     });
    session.send(CITP::Msg_MSEX_GELI(session.msexMinor(), type, parent, {}));
    session.waitFor(
        parent == Root ? QString("its libraries") : QString("the libraries below ") + parent,
        [&] { return answer.has_value(); }, [&] { return remark; });
    return *answer;
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

// Depth first, so that children follow their parent.
void collectLibraries(Session& session, quint8 type, const QString& parent, int depth, QSet<QString>& known,
                      std::vector<Library>& all)
{
    int duplicates = 0;
    int unexpected = 0;
    for (const auto& info : requestLibraries(session, type, parent).Libraries) {
        if (known.contains(info.LIBID)) {
            ++duplicates;
            continue;
        }
        // The top-level request has no parent to compare with.
        if (depth > 0 && !isChildOf(info.LIBID, parent)) {
            ++unexpected;
            continue;
        }
        if (all.size() >= MaxLibraries)
            throw Failure{
                QString("%1 lists more than %2 libraries").arg(session.name(), QString::number(MaxLibraries))};
        known.insert(info.LIBID);
        all.push_back({info, depth});
        if (info.SubLibraryCount > 0 && depth < MaxDepth)
            collectLibraries(session, type, info.LIBID, depth + 1, known, all);
    }
    warnAboutDuplicates(duplicates, session.name());
    if (unexpected > 0)
        warn(QString("%1 lists %2 libraries that are not below %3, as requested; they are ignored")
                 .arg(session.name(), QString::number(unexpected), parent));
}

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

std::vector<Library> fetchLibraries(Session& session, quint8 type)
{
    std::vector<Library> all;
    QSet<QString> known;
    collectLibraries(session, type, Root, 0, known, all);
    return all;
}

ElementList fetchElements(Session& session, quint8 type, const QString& id)
{
    std::optional<ElementList> answer;
    QString remark;
    QObject scope;
    // The server chooses which of the three messages it sends. The library id in it identifies the request.
    const auto handleAnswer = [&](const QString& key, const auto& message) {
        if (key != session.key() || answer)
            return;
        if (message.versionMinor > 2)
            remark = unknownVersion(message);
        else if (message.LibraryId == id)
            answer = toList(message);
    };
    QObject::connect(citp_stack::Get(), &citp_stack::mediaInfo, &scope,
                     [&](const QString& key, const CITP::Msg_MSEX_MEIN& message) { handleAnswer(key, message); });
    QObject::connect(citp_stack::Get(), &citp_stack::effectInfo, &scope,
                     [&](const QString& key, const CITP::Msg_MSEX_EEIN& message) { handleAnswer(key, message); });
    QObject::connect(citp_stack::Get(), &citp_stack::genericInfo, &scope,
                     [&](const QString& key, const CITP::Msg_MSEX_GLEI& message) { handleAnswer(key, message); });
    session.send(CITP::Msg_MSEX_GEIN(session.msexMinor(), type, id, {}));
    session.waitFor(
        "the elements of library " + id, [&] { return answer.has_value(); }, [&] { return remark; });
    removeDuplicates(answer->elements, id);
    return *answer;
}
} // namespace Console

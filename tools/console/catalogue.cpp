// Requests for libraries and elements, and the matching of the answers to them.
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

// Above all libraries; not sent in MSEX 1.0, which has no levels.
const char* const Root = "0,0,0,0";

// A server may list a library below itself; identities have no more levels than this.
constexpr int DeepestLevel = 2;
// No server has so many; one that lies could name 16 million, each of which would be asked about.
constexpr std::size_t MostLibraries = 65536;

// An answer in a version that the library does not know comes without content.
QString unknownVersion(const CITP::Msg_MSEX& message)
{
    return QString("(an answer came in MSEX %1.%2, which is not known here)")
        .arg(message.versionMajor)
        .arg(message.versionMinor);
}

CITP::Msg_MSEX_ELIN askForLibraries(Session& session, quint8 type, const QString& parent)
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
    session.await(
        parent == Root ? QString("its libraries") : QString("the libraries below ") + parent,
        [&] { return answer.has_value(); }, [&] { return remark; });
    return *answer;
}

// An answer that was cut short reads as zeros behind the cut, which shows as entries that are there again and again.
void complainAboutDoubles(int count, const QString& what)
{
    if (count > 0)
        complain(QString("%1 lists %2 twice: left out; the answer may be damaged").arg(what, QString::number(count)));
}

// Whether the identity continues that of the library above: one level more, and the same numbers up to there.
bool isBelow(const QString& id, const QString& parent)
{
    const QStringList levels = id.split(',');
    const QStringList above = parent.split(',');
    const int depth = above.constFirst().toInt();
    return levels.constFirst().toInt() == depth + 1 && levels.mid(1, depth) == above.mid(1, depth);
}

// Depth first, so that children stand below their parents.
void walk(Session& session, quint8 type, const QString& parent, int depth, QSet<QString>& known,
          std::vector<Library>& all)
{
    int doubles = 0;
    int strangers = 0;
    for (const auto& info : askForLibraries(session, type, parent).Libraries) {
        if (known.contains(info.LIBID)) {
            ++doubles;
            continue;
        }
        // At the top there is nothing to go by, and nothing that could be confused.
        if (depth > 0 && !isBelow(info.LIBID, parent)) {
            ++strangers;
            continue;
        }
        if (all.size() >= MostLibraries)
            throw Failure{QString("%1 lists more than %2 libraries, which cannot be")
                              .arg(session.name(), QString::number(MostLibraries))};
        known.insert(info.LIBID);
        all.push_back({info, depth});
        if (info.SubLibraryCount > 0 && depth < DeepestLevel)
            walk(session, type, info.LIBID, depth + 1, known, all);
    }
    complainAboutDoubles(doubles, session.name());
    if (strangers > 0)
        complain(QString("%1 lists %2 libraries that are not below %3, of which it was asked: left out")
                     .arg(session.name(), QString::number(strangers), parent));
}

void removeDoubles(std::vector<Element>& elements, const QString& id)
{
    QSet<int> numbers;
    const auto isDouble = [&numbers](const Element& element) {
        const bool isKnown = numbers.contains(element.number);
        numbers.insert(element.number);
        return isKnown;
    };
    const auto before = elements.size();
    elements.erase(std::remove_if(elements.begin(), elements.end(), isDouble), elements.end());
    complainAboutDoubles(static_cast<int>(before - elements.size()), "library " + id);
}

ElementList toList(const CITP::Msg_MSEX_MEIN& message)
{
    ElementList list;
    for (const auto& item : message.Media) {
        Element element;
        element.number = item.Number;
        element.dmxMin = item.DMXRangeMin;
        element.dmxMax = item.DMXRangeMax;
        element.name = item.Name;
        element.serial = item.SerialNumber;
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
        Element element;
        element.number = item.Number;
        element.dmxMin = item.DMXRangeMin;
        element.dmxMax = item.DMXRangeMax;
        element.name = item.EffectName;
        element.serial = item.SerialNumber;
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
        Element element;
        element.number = item.Number;
        element.dmxMin = item.DMXRangeMin;
        element.dmxMax = item.DMXRangeMax;
        element.name = item.Name;
        element.serial = item.SerialNumber;
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
    throw Failure{QString("library %1: this server speaks MSEX 1.0, which has top-level libraries only; give a number")
                      .arg(text)};
}

std::vector<Library> fetchLibraries(Session& session, quint8 type)
{
    std::vector<Library> all;
    QSet<QString> known;
    walk(session, type, Root, 0, known, all);
    return all;
}

ElementList fetchElements(Session& session, quint8 type, const QString& id)
{
    std::optional<ElementList> answer;
    QString remark;
    QObject scope;
    // Which of the three messages comes is the server's choice; the library in it tells what it answers.
    const auto take = [&](const QString& key, const auto& message) {
        if (key != session.key() || answer)
            return;
        if (message.versionMinor > 2)
            remark = unknownVersion(message);
        else if (message.LibraryId == id)
            answer = toList(message);
    };
    QObject::connect(citp_stack::Get(), &citp_stack::mediaInfo, &scope,
                     [&](const QString& key, const CITP::Msg_MSEX_MEIN& message) { take(key, message); });
    QObject::connect(citp_stack::Get(), &citp_stack::effectInfo, &scope,
                     [&](const QString& key, const CITP::Msg_MSEX_EEIN& message) { take(key, message); });
    QObject::connect(citp_stack::Get(), &citp_stack::genericInfo, &scope,
                     [&](const QString& key, const CITP::Msg_MSEX_GLEI& message) { take(key, message); });
    session.send(CITP::Msg_MSEX_GEIN(session.msexMinor(), type, id, {}));
    session.await(
        "the elements of library " + id, [&] { return answer.has_value(); }, [&] { return remark; });
    removeDoubles(answer->elements, id);
    return *answer;
}
} // namespace Console

// The nodes of the tree, what is requested for them, and how answers and updates change them.
// SPDX-License-Identifier: Apache-2.0
#include <citp_client/catalogue.h>

#include <citp/citp_msg_msex_libraries.h>

#include <QHash>
#include <QPair>
#include <QSet>

#include <algorithm>
#include <array>
#include <bitset>
#include <set>
#include <utility>

namespace CITP {
namespace {
using Numbers = std::bitset<256>;
using NodeId = QPair<quint8, QString>;

std::vector<quint8> toVector(const Numbers& numbers)
{
    std::vector<quint8> vector;
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        if (numbers[i]) {
            vector.push_back(static_cast<quint8>(i));
        }
    }
    return vector;
}

/// The numbers that an update names; none if any may be affected.
template <typename Bits>
Numbers named(const Bits& bits, bool areAll)
{
    Numbers numbers;
    for (std::size_t i = 0; i < numbers.size() && !areAll; ++i) {
        numbers[i] = (bits[i / 8] >> (i % 8) & 1) != 0;
    }
    return numbers;
}

/// Takes the answer to a request for @p numbers into @p items: what was requested and is missing in @p answer no longer
/// exists.
template <typename Items, typename NumberOf>
void merge(Items& items, Items answer, const std::vector<quint8>& numbers, NumberOf numberOf)
{
    if (numbers.empty()) {
        items = std::move(answer);
        return;
    }
    const auto sameNumber = [&](const auto& item) {
        return [&](const auto& other) { return numberOf(other) == numberOf(item); };
    };
    items.erase(std::remove_if(items.begin(), items.end(),
                               [&](const auto& item) {
                                   return std::find(numbers.begin(), numbers.end(), numberOf(item)) != numbers.end() &&
                                          std::none_of(answer.begin(), answer.end(), sameNumber(item));
                               }),
                items.end());
    for (auto& item : answer) {
        const auto known = std::find_if(items.begin(), items.end(), sameNumber(item));
        if (known != items.end()) {
            *known = std::move(item);
        } else {
            items.insert(std::find_if(items.begin(), items.end(),
                                      [&](const auto& other) { return numberOf(other) > numberOf(item); }),
                         std::move(item));
        }
    }
}
} // namespace

struct CITP_HIDDEN Catalogue::Private
{
    /// One of the two lists of a library: what is known of it and what is requested.
    struct List
    {
        State state = Unknown;
        QString problem;
        Reply* reply = nullptr;
        bool isRequested = false; ///< once more, after #reply
        Numbers numbers;          ///< then these; none for all
        bool isByHand = false;    ///< then somebody waits for it
        bool isStale = false;     ///< was loaded over an earlier connection
        quint32 serial = 0;       ///< of the library that has these elements; 0 if that is not certain
    };

    struct Node
    {
        Library library;
        QStringList children; ///< identifiers in the server's order
        std::vector<Element> elements;
        std::array<List, 2> lists; ///< by Request::Kind: libraries, elements
    };

    Private(Catalogue* catalogue, Requests& r, QString key) : q(catalogue), requests(r), server(std::move(key)) {}

    const Node& node(quint8 type, const QString& id) const;
    const List& list(Request::Kind kind, quint8 type, const QString& id) const { return node(type, id).lists[kind]; }
    void request(quint8 type, const QString& id, Request::Kind kind, const Numbers& numbers = {},
                 bool isByHand = false);
    void send(quint8 type, const QString& id, Request::Kind kind);
    void finish(quint8 type, const QString& id, Reply* reply);
    void take(quint8 type, const QString& id, Reply* reply);
    void setLibraries(quint8 type, const QString& parent, const std::vector<Library>& libraries);
    void remove(quint8 type, const QString& id);
    void update(const Msg_MSEX_ELUP& message);
    void reload();
    void emitChanged(quint8 type, const QString& id, Request::Kind kind);

    Catalogue* const q;
    Requests& requests;
    const QString server;
    QHash<NodeId, Node> nodes;
    std::set<quint8> whole;         ///< types of which all libraries are loaded
    std::set<quint8> wholeElements; ///< and their elements
    int pending = 0;
    bool isFull = false;
};

// --- Requests --------------------------------------------------------------------------------------------------------

/// The node of a library; an empty one if it is unknown.
const Catalogue::Private::Node& Catalogue::Private::node(quint8 type, const QString& id) const
{
    static const Node none;
    const auto found = nodes.constFind({type, id});
    return found == nodes.constEnd() ? none : *found;
}

void Catalogue::Private::request(quint8 type, const QString& id, Request::Kind kind, const Numbers& numbers,
                                 bool isByHand)
{
    List& list = nodes[{type, id}].lists[kind];
    const bool areAll =
        numbers.none() || (list.isRequested && list.numbers.none()) || list.state != Loaded || list.isStale;
    list.numbers = areAll ? Numbers() : list.isRequested ? list.numbers | numbers : numbers;
    list.isRequested = true;
    list.isByHand = list.isByHand || isByHand;
    if (list.reply && isByHand) {
        list.reply->setByHand();
    }
    if (!list.reply) {
        send(type, id, kind);
    }
}

void Catalogue::Private::send(quint8 type, const QString& id, Request::Kind kind)
{
    List& list = nodes[{type, id}].lists[kind];
    list.isRequested = false;
    const std::vector<quint8> numbers = list.numbers.count() > 255 ? std::vector<quint8>() : toVector(list.numbers);
    Request request{server, kind, type, id, numbers};
    request.isByHand = std::exchange(list.isByHand, false);
    list.reply = requests.get(request);
    ++pending;
    connect(list.reply, &Reply::finished, q, [this, type, id, reply = list.reply] { finish(type, id, reply); });
    if (list.state != Loaded) {
        list.state = Loading;
        emitChanged(type, id, kind);
    }
}

void Catalogue::Private::finish(quint8 type, const QString& id, Reply* reply)
{
    --pending;
    const Request::Kind kind = reply->request().kind;
    const auto node = nodes.find({type, id});
    // The library may have been removed, and added again.
    if (node != nodes.end() && node->lists[kind].reply == reply) {
        List& list = node->lists[kind];
        list.reply = nullptr;
        list.problem = reply->errorString();
        if (reply->dropped() > 0) {
            list.problem = tr("Server %1 sent an odd list of %2: %3 entries were left out")
                               .arg(requests.nameOf(server), id)
                               .arg(reply->dropped());
        }
        if (reply->status() == Reply::Answered) {
            list.state = Loaded;
            list.isStale = false;
            take(type, id, reply);
        } else {
            list.state = list.state == Loaded ? Loaded : Failed;
            list.serial = 0;
        }
        // take() may have changed the nodes.
        const auto same = nodes.find({type, id});
        if (same != nodes.end() && same->lists[kind].isRequested && reply->status() != Reply::ServerLost) {
            send(type, id, kind);
        }
        emitChanged(type, id, kind);
    }
    if (pending == 0) {
        Q_EMIT q->idle();
    }
}

void Catalogue::Private::emitChanged(quint8 type, const QString& id, Request::Kind kind)
{
    if (kind == Request::Libraries) {
        Q_EMIT q->librariesChanged(type, id);
    } else {
        Q_EMIT q->elementsChanged(type, id);
    }
}

// --- Answers ---------------------------------------------------------------------------------------------------------

void Catalogue::Private::take(quint8 type, const QString& id, Reply* reply)
{
    Node& node = nodes[{type, id}];
    const std::vector<quint8>& numbers = reply->request().numbers;
    if (reply->request().kind == Request::Elements) {
        // The reply is this object's own; nobody else reads its list.
        merge(node.elements, std::move(reply->m_elements), numbers,
              [](const Element& element) { return element.number; });
        List& list = node.lists[Request::Elements];
        list.serial = list.isRequested || !numbers.empty() ? 0 : node.library.serialNumber;
        return;
    }
    std::vector<Library> libraries = q->libraries(type, id);
    merge(libraries, reply->libraries(), numbers, [](const Library& library) { return libraryNumber(library.id); });
    setLibraries(type, id, libraries);
}

void Catalogue::Private::setLibraries(quint8 type, const QString& parent, const std::vector<Library>& libraries)
{
    QStringList children;
    for (const Library& library : libraries) {
        children << library.id;
    }
    const QStringList former = nodes[{type, parent}].children;
    const QSet<QString> kept(children.begin(), children.end());
    for (const QString& id : former) {
        if (!kept.contains(id)) {
            remove(type, id);
        }
    }
    const int room = maxLibraries - static_cast<int>(nodes.size());
    int added = 0;
    QStringList present;
    for (const Library& library : libraries) {
        const NodeId id(type, library.id);
        if (!nodes.contains(id) && ++added > room) {
            nodes[{type, parent}].lists[Request::Libraries].problem =
                tr("Server %1 lists more than %2 libraries: the others are left out")
                    .arg(requests.nameOf(server))
                    .arg(maxLibraries);
            isFull = true;
            continue;
        }
        present << library.id;
        Node& node = nodes[id];
        node.library = library;
        List& elements = node.lists[Request::Elements];
        const bool isOther = elements.serial != 0 && elements.serial != library.serialNumber;
        elements.isStale = isOther || (elements.isStale && elements.serial == 0);
        if (elements.state == Loaded && !elements.isStale && !elements.reply) {
            elements.serial = library.serialNumber;
        }
        const bool areWanted = wholeElements.count(type) > 0 && elements.state == Unknown && library.elements > 0;
        // An identifier has no room for a level below the third.
        const bool isWanted = whole.count(type) > 0 && node.lists[Request::Libraries].state == Unknown &&
                              library.subLibraries > 0 && !library.id.startsWith(QLatin1String("3,"));
        const bool isStale = node.lists[Request::Libraries].isStale;
        // Receivers of what these emit may change the nodes.
        if (areWanted || elements.isStale) {
            request(type, library.id, Request::Elements);
        }
        if (isWanted || isStale) {
            request(type, library.id, Request::Libraries);
        }
    }
    nodes[{type, parent}].children = present;
}

void Catalogue::Private::remove(quint8 type, const QString& id)
{
    const Node removed = nodes.take({type, id});
    // Nobody is told of their end, and a server that takes its libraries back again and again would fill the memory.
    for (const List& list : removed.lists) {
        pending -= list.reply ? 1 : 0;
        delete list.reply;
    }
    for (const QString& child : removed.children) {
        remove(type, child);
    }
}

// --- Updates ---------------------------------------------------------------------------------------------------------

void Catalogue::Private::update(const Msg_MSEX_ELUP& message)
{
    constexpr unsigned elementFlags = 0x01 | 0x02;
    constexpr unsigned libraryFlags = 0x04 | 0x08;
    const bool touchesElements = (message.UpdateFlags & elementFlags) != 0;
    const bool touchesLibraries = (message.UpdateFlags & libraryFlags) != 0;
    const quint8 type = message.LibraryType;
    const quint8 minor = requests.msexMinor(server);
    // In MSEX 1.0 the root has no number, but nothing else has libraries.
    const QString id = minor == 0 && touchesLibraries ? rootLibrary() : libraryId(message.LibraryId, minor);
    if (touchesLibraries && list(Request::Libraries, type, id).state != Unknown) {
        request(type, id, Request::Libraries, named(message.AffectedLibraries, (message.UpdateFlags & 0x20) != 0));
    }
    if (!touchesElements && (!touchesLibraries || id == rootLibrary())) {
        return;
    }
    const QString library = libraryId(message.LibraryId, minor);
    if (touchesElements && list(Request::Elements, type, library).state != Unknown) {
        nodes[{type, library}].lists[Request::Elements].serial = 0;
        request(type, library, Request::Elements, named(message.AffectedElements, (message.UpdateFlags & 0x10) != 0));
    }
    // Its entry has the numbers of elements and libraries and the serial number.
    const QString parent = parentLibrary(library);
    if (library != rootLibrary() && list(Request::Libraries, type, parent).state != Unknown) {
        request(type, parent, Request::Libraries, Numbers().set(libraryNumber(library)));
    }
}

// The elements of libraries whose serial number has not changed are still right; see setLibraries().
void Catalogue::Private::reload()
{
    std::set<quint8> types = whole;
    for (auto node = nodes.begin(); node != nodes.end(); ++node) {
        for (List& list : node->lists) {
            list.isStale = list.state != Unknown;
        }
        if (node.key().second == rootLibrary() && node->lists[Request::Libraries].isStale) {
            types.insert(node.key().first);
        }
    }
    for (const quint8 type : types) {
        request(type, rootLibrary(), Request::Libraries);
    }
    // Libraries that were asked for by their identifier only.
    for (const NodeId& id : nodes.keys()) {
        const bool isListed = list(Request::Libraries, id.first, parentLibrary(id.second)).state != Unknown;
        if (id.second != rootLibrary() && !isListed && list(Request::Elements, id.first, id.second).isStale) {
            request(id.first, id.second, Request::Elements);
        }
    }
}

// --- Interface -------------------------------------------------------------------------------------------------------

Catalogue::Catalogue(Requests& requests, const QString& server, QObject* parent)
    : QObject(parent), d(std::make_unique<Private>(this, requests, server))
{
    connect(&requests.transport(), &Transport::libraryUpdated, this,
            [this](const QString& key, const Msg_MSEX_ELUP& message) {
                if (key == d->server) {
                    d->update(message);
                }
            });
    connect(&requests.transport(), &Transport::serverUp, this, [this](const QString& key) {
        if (key == d->server) {
            d->reload();
        }
    });
}

Catalogue::~Catalogue()
{
    for (const Private::Node& node : std::as_const(d->nodes)) {
        for (const Private::List& list : node.lists) {
            delete list.reply;
        }
    }
}

QString Catalogue::server() const
{
    return d->server;
}

void Catalogue::loadLibraries(quint8 type, const QString& library, bool isByHand)
{
    d->request(type, library, Request::Libraries, {}, isByHand);
}

void Catalogue::loadElements(quint8 type, const QString& library, bool isByHand)
{
    d->request(type, library, Request::Elements, {}, isByHand);
}

void Catalogue::loadAll(quint8 type)
{
    d->wholeElements.insert(type);
    loadAllLibraries(type);
}

void Catalogue::loadAllLibraries(quint8 type)
{
    d->whole.insert(type);
    d->request(type, rootLibrary(), Request::Libraries);
}

bool Catalogue::isIdle() const
{
    return d->pending == 0;
}

bool Catalogue::isFull() const
{
    return d->isFull;
}

std::vector<Library> Catalogue::libraries(quint8 type, const QString& library) const
{
    std::vector<Library> libraries;
    for (const QString& id : d->node(type, library).children) {
        libraries.push_back(d->node(type, id).library);
    }
    return libraries;
}

std::vector<Library> Catalogue::allLibraries(quint8 type) const
{
    std::vector<Library> all;
    QStringList waiting{rootLibrary()};
    while (!waiting.isEmpty()) {
        const QString id = waiting.takeLast();
        const Private::Node& node = d->node(type, id);
        if (id != rootLibrary()) {
            all.push_back(node.library);
        }
        for (auto child = node.children.crbegin(); child != node.children.crend(); ++child) {
            waiting << *child;
        }
    }
    return all;
}

Library Catalogue::library(quint8 type, const QString& id) const
{
    return d->node(type, id).library;
}

const std::vector<Element>& Catalogue::elements(quint8 type, const QString& library) const
{
    return d->node(type, library).elements;
}

Catalogue::State Catalogue::librariesState(quint8 type, const QString& library) const
{
    return d->list(Request::Libraries, type, library).state;
}

Catalogue::State Catalogue::elementsState(quint8 type, const QString& library) const
{
    return d->list(Request::Elements, type, library).state;
}

QString Catalogue::librariesProblem(quint8 type, const QString& library) const
{
    return d->list(Request::Libraries, type, library).problem;
}

QString Catalogue::elementsProblem(quint8 type, const QString& library) const
{
    return d->list(Request::Elements, type, library).problem;
}
} // namespace CITP

// Library ids, lookups, and the comparison of two states.
// SPDX-License-Identifier: Apache-2.0
#include "library.h"

#include <algorithm>
#include <map>

namespace MediaServer {
namespace {
using Key = std::pair<quint8, quint32>;

void compareElements(const Library& before, const Library& after, LibraryUpdate& update)
{
    std::map<quint8, const Element*> old;
    for (const Element& element : before.elements)
        old[element.number] = &element;
    for (const Element& element : after.elements) {
        const auto known = old.find(element.number);
        if (known == old.end() || known->second->name != element.name) {
            update.flags |= UpdateFlag::ElementsAddedOrRemoved;
            update.elements.set(element.number);
        } else if (known->second->serial != element.serial) {
            update.flags |= UpdateFlag::ElementsUpdated;
            update.elements.set(element.number);
        }
        if (known != old.end())
            old.erase(known);
    }
    for (const auto& [number, gone] : old) {
        update.flags |= UpdateFlag::ElementsAddedOrRemoved;
        update.elements.set(number);
    }
}

LibraryUpdate& updateOf(std::map<Key, LibraryUpdate>& updates, quint8 type, quint32 id)
{
    LibraryUpdate& update = updates[{type, id}];
    update.type = type;
    update.id = id;
    return update;
}
} // namespace

quint32 childId(quint32 parent, quint8 number)
{
    const quint32 level = (parent & 0xFF) + 1;
    return (parent & ~0xFFU) | level | (static_cast<quint32>(number) << (8 * level));
}

quint32 parentId(quint32 id)
{
    const quint32 level = id & 0xFF;
    if (level == 0 || level > MaxLevel)
        return 0;
    const quint32 parent = level - 1;
    return parent == 0 ? 0 : ((id & ~0xFFU) & ~(0xFFU << (8 * level))) | parent;
}

quint32 idFromWire(quint8 msexMinor, quint32 onWire)
{
    return msexMinor == 0 ? childId(0, static_cast<quint8>(onWire)) : onWire;
}

quint8 numberOf(quint32 id)
{
    const quint32 level = id & 0xFF;
    if (level == 0 || level > MaxLevel)
        return 0;
    return static_cast<quint8>((id >> (8 * level)) & 0xFF);
}

QString idText(quint32 id)
{
    return QString("%1,%2,%3,%4").arg(id & 0xFF).arg((id >> 8) & 0xFF).arg((id >> 16) & 0xFF).arg(id >> 24);
}

const Library* findLibrary(const Libraries& libraries, quint8 type, quint32 id)
{
    const auto found = std::find_if(libraries.begin(), libraries.end(),
                                    [&](const Library& library) { return library.type == type && library.id == id; });
    return found == libraries.end() ? nullptr : &*found;
}

int subLibraryCount(const Libraries& libraries, const Library& library)
{
    return static_cast<int>(std::count_if(libraries.begin(), libraries.end(), [&](const Library& other) {
        return other.type == library.type && parentId(other.id) == library.id;
    }));
}

quint32 serialOf(const Library& library)
{
    quint32 serial = 1;
    for (const Element& element : library.elements)
        serial = serial * 31 + element.serial + element.number;
    return serial;
}

std::vector<LibraryUpdate> differences(const Libraries& before, const Libraries& after)
{
    std::map<Key, std::pair<const Library*, const Library*>> both;
    for (const Library& library : before)
        both[{library.type, library.id}].first = &library;
    for (const Library& library : after)
        both[{library.type, library.id}].second = &library;

    std::map<Key, LibraryUpdate> updates;
    static const Library Nothing;
    for (const auto& [key, pair] : both) {
        const auto& [was, is] = pair;
        const bool sameFolder = was && is && was->name == is->name;
        LibraryUpdate content;
        compareElements(was ? *was : Nothing, is ? *is : Nothing, content);
        if (content.flags == 0 && sameFolder)
            continue;
        LibraryUpdate& own = updateOf(updates, key.first, key.second);
        own.flags |= content.flags;
        own.elements |= content.elements;
        if (!sameFolder)
            own.flags |= UpdateFlag::ElementsAddedOrRemoved;
        LibraryUpdate& parent = updateOf(updates, key.first, parentId(key.second));
        parent.flags |= sameFolder ? UpdateFlag::LibrariesUpdated : UpdateFlag::LibrariesAddedOrRemoved;
        parent.libraries.set(numberOf(key.second));
    }
    std::vector<LibraryUpdate> list;
    list.reserve(updates.size());
    for (const auto& [key, update] : updates)
        list.push_back(update);
    return list;
}
} // namespace MediaServer

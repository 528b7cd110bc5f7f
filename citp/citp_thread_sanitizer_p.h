// Tells the thread sanitizer about queued signals. Only builds with that sanitizer on Qt 6 use it. Private; not
// installed.
//
// A receiver in another thread gets copies of a signal's arguments through that thread's event queue. Qt's locks order
// the copying on one thread before the receiver and the destruction on the other, but the sanitizer does not see into
// Qt and would report every such argument as a race. So each copy made by Qt is announced with a release, and each
// thread acquires before it delivers or destroys copies. Nothing is suppressed: data shared in any other way is still
// reported.
//
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QEvent>
#include <QMetaType>

#include <sanitizer/tsan_interface.h>

#include <new>

namespace CITP {
/// Stands for all copies in event queues. Only its address is used.
inline char queuedCopies;

/// Annotates the copies that Qt makes of @p Value.
template <typename Value>
void annotateCopies()
{
    // Only constant to Qt's users: Qt itself writes the type's number into it.
    auto* const type = const_cast<QtPrivate::QMetaTypeInterface*>(QMetaType::fromType<Value>().iface());
    type->copyCtr = [](const QtPrivate::QMetaTypeInterface*, void* where, const void* from) {
        new (where) Value(*static_cast<const Value*>(from));
        __tsan_release(&queuedCopies);
    };
    // Events that are never delivered are destroyed all the same.
    type->dtor = [](const QtPrivate::QMetaTypeInterface*, void* where) {
        __tsan_acquire(&queuedCopies);
        static_cast<Value*>(where)->~Value();
    };
}
} // namespace CITP

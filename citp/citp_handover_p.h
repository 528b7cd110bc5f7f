// What the thread sanitizer has to be told of queued signals; nothing in any other build. Private; not installed.
//
// A receiver in another thread gets copies of a signal's messages through that thread's event queue. Qt's locks order
// the copying on the one thread before the receiver and the deletion on the other, but the sanitizer does not see into
// Qt and would call every such message a race. So each copy made by Qt says that it is ready, and each thread that is
// about to deliver or to delete copies says that it waited for them. Nothing is suppressed: what is not handed over in
// this way is still reported.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QtGlobal>

#if defined(__SANITIZE_THREAD__) && QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
#include <QEvent>
#include <QMetaType>

#include <sanitizer/tsan_interface.h>

#include <new>
#endif

namespace CITP {
#if defined(__SANITIZE_THREAD__) && QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
/// Stands for all copies that wait in event queues; its address counts, and nobody reads or writes it.
inline char queuedCopies;

/// Follows the copies of one message class, which is registered.
template <typename Message>
void followCopies()
{
    // Only constant to Qt's users: Qt itself writes the type's number into it.
    auto* const type = const_cast<QtPrivate::QMetaTypeInterface*>(QMetaType::fromType<Message>().iface());
    type->copyCtr = [](const QtPrivate::QMetaTypeInterface*, void* where, const void* from) {
        new (where) Message(*static_cast<const Message*>(from));
        __tsan_release(&queuedCopies);
    };
    // Events that are never delivered are deleted all the same.
    type->dtor = [](const QtPrivate::QMetaTypeInterface*, void* where) {
        __tsan_acquire(&queuedCopies);
        static_cast<Message*>(where)->~Message();
    };
}

/// Follows the delivery of queued signals, in every thread. To be called once.
inline void followDelivery()
{
    QInternal::registerCallback(QInternal::EventNotifyCallback, [](void** receiverEventResult) {
        if (static_cast<const QEvent*>(receiverEventResult[1])->type() == QEvent::MetaCall) {
            __tsan_acquire(&queuedCopies);
        }
        return false; // Qt goes on with it
    });
}
#else
template <typename Message>
void followCopies()
{
}
inline void followDelivery() {}
#endif
} // namespace CITP

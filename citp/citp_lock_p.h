// StackLock: holds the stack's registry lock. Private; not installed.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QRecursiveMutex>

#if defined(__SANITIZE_THREAD__)
#include <sanitizer/tsan_interface.h>
#endif

namespace CITP {
/// Locks citp_stack::m_mutex for as long as the object lives; what the lock guards is documented there. The annotations
/// tell the thread sanitizer, which cannot see into Qt, that a lock is taken.
class StackLock
{
public:
    explicit StackLock(QRecursiveMutex* mutex) : m_mutex(mutex)
    {
#if defined(__SANITIZE_THREAD__)
        __tsan_mutex_pre_lock(m_mutex, __tsan_mutex_write_reentrant);
        m_mutex->lock();
        __tsan_mutex_post_lock(m_mutex, __tsan_mutex_write_reentrant, 0);
#else
        m_mutex->lock();
#endif
    }

    ~StackLock()
    {
#if defined(__SANITIZE_THREAD__)
        __tsan_mutex_pre_unlock(m_mutex, __tsan_mutex_write_reentrant);
        m_mutex->unlock();
        __tsan_mutex_post_unlock(m_mutex, __tsan_mutex_write_reentrant);
#else
        m_mutex->unlock();
#endif
    }

    StackLock(const StackLock&) = delete;
    StackLock& operator=(const StackLock&) = delete;

private:
    QRecursiveMutex* const m_mutex;
};
} // namespace CITP

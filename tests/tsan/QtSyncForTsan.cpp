// ThreadSanitizer sees the synchronisation of instrumented code and of the C
// library, but Qt is built without it: a QMutex taken past its inline fast
// path, a thread waited for, or a call queued to another thread's object
// synchronises inside Qt, unseen, and every value handed over under it looks
// raced. Linked first into every program of a ThreadSanitizer build, each
// function here stands in for Qt's own of the same name, calls it, and tells
// the sanitizer what it synchronised. Qt's calls within Qt are not affected.
#include <QDeadlineTimer>
#include <QMutex>
#include <QObject>
#include <QSemaphore>
#include <QThread>
#include <QWaitCondition>

#include <dlfcn.h>

extern "C" void __tsan_acquire(void *address);
extern "C" void __tsan_release(void *address);

namespace {

// Qt's own function of that (mangled) name, found once.
template <typename Function> Function qtOwn(const char *symbol)
{
    void *found = dlsym(RTLD_NEXT, symbol);
    if (!found)
        qFatal("ThreadSanitizer shim: Qt has no %s", symbol);
    return reinterpret_cast<Function>(found);
}

#define QT_OWN(type, symbol) static const auto own = qtOwn<type>(symbol)

} // namespace

void QBasicMutex::lockInternal() QT_MUTEX_LOCK_NOEXCEPT
{
    QT_OWN(void (*)(QBasicMutex *), "_ZN11QBasicMutex12lockInternalEv");
    own(this);
    __tsan_acquire(this);
}

bool QBasicMutex::lockInternal(int timeout) QT_MUTEX_LOCK_NOEXCEPT
{
    QT_OWN(bool (*)(QBasicMutex *, int), "_ZN11QBasicMutex12lockInternalEi");
    const bool locked = own(this, timeout);
    if (locked)
        __tsan_acquire(this);
    return locked;
}

void QBasicMutex::unlockInternal() noexcept
{
    QT_OWN(void (*)(QBasicMutex *), "_ZN11QBasicMutex14unlockInternalEv");
    __tsan_release(this);
    own(this);
}

void QMutex::lock() QT_MUTEX_LOCK_NOEXCEPT
{
    QT_OWN(void (*)(QMutex *), "_ZN6QMutex4lockEv");
    own(this);
    __tsan_acquire(this);
}

bool QMutex::tryLock(int timeout) QT_MUTEX_LOCK_NOEXCEPT
{
    QT_OWN(bool (*)(QMutex *, int), "_ZN6QMutex7tryLockEi");
    const bool locked = own(this, timeout);
    if (locked)
        __tsan_acquire(this);
    return locked;
}

void QMutex::unlock() noexcept
{
    QT_OWN(void (*)(QMutex *), "_ZN6QMutex6unlockEv");
    __tsan_release(this);
    own(this);
}

bool QWaitCondition::wait(QMutex *mutex, QDeadlineTimer deadline)
{
    QT_OWN(bool (*)(QWaitCondition *, QMutex *, QDeadlineTimer), "_ZN14QWaitCondition4waitEP6QMutex14QDeadlineTimer");
    __tsan_release(mutex);
    const bool woken = own(this, mutex, deadline);
    __tsan_acquire(mutex);
    return woken;
}

bool QWaitCondition::wait(QMutex *mutex, unsigned long time)
{
    QT_OWN(bool (*)(QWaitCondition *, QMutex *, unsigned long), "_ZN14QWaitCondition4waitEP6QMutexm");
    __tsan_release(mutex);
    const bool woken = own(this, mutex, time);
    __tsan_acquire(mutex);
    return woken;
}

void QSemaphore::acquire(int n)
{
    QT_OWN(void (*)(QSemaphore *, int), "_ZN10QSemaphore7acquireEi");
    own(this, n);
    __tsan_acquire(this);
}

bool QSemaphore::tryAcquire(int n)
{
    QT_OWN(bool (*)(QSemaphore *, int), "_ZN10QSemaphore10tryAcquireEi");
    const bool acquired = own(this, n);
    if (acquired)
        __tsan_acquire(this);
    return acquired;
}

bool QSemaphore::tryAcquire(int n, int timeout)
{
    QT_OWN(bool (*)(QSemaphore *, int, int), "_ZN10QSemaphore10tryAcquireEii");
    const bool acquired = own(this, n, timeout);
    if (acquired)
        __tsan_acquire(this);
    return acquired;
}

void QSemaphore::release(int n)
{
    QT_OWN(void (*)(QSemaphore *, int), "_ZN10QSemaphore7releaseEi");
    __tsan_release(this);
    own(this, n);
}

// A thread waited for has done all it did up to its last event (see below).
bool QThread::wait(QDeadlineTimer deadline)
{
    QT_OWN(bool (*)(QThread *, QDeadlineTimer), "_ZN7QThread4waitE14QDeadlineTimer");
    const bool finished = own(this, deadline);
    __tsan_acquire(this);
    return finished;
}

bool QThread::wait(unsigned long time)
{
    QT_OWN(bool (*)(QThread *, unsigned long), "_ZN7QThread4waitEm");
    const bool finished = own(this, time);
    __tsan_acquire(this);
    return finished;
}

// A call queued to an object: what the caller did before happens before the
// call runs on the object's thread, and a blocking call's work before it returns.
bool QMetaObject::invokeMethodImpl(QObject *object, QtPrivate::QSlotObjectBase *slot, Qt::ConnectionType type,
                                   void *ret)
{
    QT_OWN(bool (*)(QObject *, QtPrivate::QSlotObjectBase *, Qt::ConnectionType, void *),
           "_ZN11QMetaObject16invokeMethodImplEP7QObjectPN9QtPrivate15QSlotObjectBaseEN2Qt14ConnectionTypeEPv");
    __tsan_release(object);
    const bool invoked = own(object, slot, type, ret);
    if (type == Qt::BlockingQueuedConnection)
        __tsan_acquire(object);
    return invoked;
}

bool QObject::event(QEvent *event)
{
    QT_OWN(bool (*)(QObject *, QEvent *), "_ZN7QObject5eventEP6QEvent");
    __tsan_acquire(this);
    const bool handled = own(this, event);
    __tsan_release(this);
    __tsan_release(QThread::currentThread());
    return handled;
}

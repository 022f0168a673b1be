#include "ControllerPoller.h"

#include "PollerWorker.h"

#include <mutex>
#include <vector>

namespace {

// The measurement switch: how many threads carry all pollers; 0, the
// default, gives each its own.
int poolSize()
{
    static const int size = qBound(0, qEnvironmentVariableIntValue("SORVIK_GATEWAY_POLL_THREADS"), 4096);
    return size;
}

// One of the pool's threads, in turn; a thread ends with its last poller.
std::shared_ptr<QThread> pooledThread()
{
    static std::mutex mutex;
    static std::vector<std::weak_ptr<QThread>> pool(static_cast<size_t>(poolSize()));
    static size_t next = 0;
    std::lock_guard<std::mutex> lock(mutex);
    const size_t index = next++ % pool.size();
    std::shared_ptr<QThread> thread = pool[index].lock();
    if (!thread) {
        thread = std::shared_ptr<QThread>(new QThread, [](QThread *ended) {
            ended->quit();
            ended->wait();
            delete ended;
        });
        thread->setObjectName(QStringLiteral("poll pool %1").arg(index));
        thread->start();
        pool[index] = thread;
    }
    return thread;
}

} // namespace

ControllerPoller::ControllerPoller(const ControllerConfig &controller, const QString &gateway,
                                   const QString &libraryFile, GatewaySink *sink, GatewayMetrics *metrics,
                                   const PollerOptions &options, QObject *parent)
    : QObject(parent), m_name(controller.name), m_pooled(poolSize() > 0)
{
    m_thread = m_pooled ? pooledThread() : std::make_shared<QThread>();
    m_worker = new PollerWorker(controller, gateway, libraryFile, sink, metrics, options);
    m_worker->moveToThread(m_thread.get());
    connect(
        m_worker, &PollerWorker::finished, m_worker, [this] { m_finished.release(); }, Qt::DirectConnection);
    if (!m_pooled) {
        m_thread->setObjectName(QStringLiteral("poll ") + controller.name);
        connect(m_thread.get(), &QThread::started, m_worker, &PollerWorker::begin);
    }
}

ControllerPoller::~ControllerPoller()
{
    stop();
    if (m_pooled) {
        // Its thread goes on for the other pollers: the worker ends there,
        // where no event for it can be on its way.
        QMetaObject::invokeMethod(
            m_worker, [worker = m_worker] { delete worker; }, Qt::BlockingQueuedConnection);
    } else {
        delete m_worker;
    }
}

void ControllerPoller::start()
{
    if (m_started)
        return;
    m_started = true;
    if (m_pooled)
        QMetaObject::invokeMethod(m_worker, &PollerWorker::begin, Qt::QueuedConnection);
    else
        m_thread->start();
}

void ControllerPoller::stop()
{
    if (!m_started)
        return;
    m_started = false;
    m_worker->requestStop();
    m_finished.acquire();
    if (!m_pooled) {
        m_thread->quit();
        m_thread->wait();
    }
}

void ControllerPoller::submitWrite(const QByteArray &payload)
{
    m_worker->enqueueWrite(payload);
}

#include "ControllerPoller.h"

#include "PollerWorker.h"

ControllerPoller::ControllerPoller(const ControllerConfig &controller, const QString &gateway,
                                   const QString &libraryFile, GatewaySink *sink, GatewayMetrics *metrics,
                                   const PollerOptions &options, QObject *parent)
    : QObject(parent), m_name(controller.name)
{
    m_thread.setObjectName(QStringLiteral("poll ") + controller.name);
    m_worker = new PollerWorker(controller, gateway, libraryFile, sink, metrics, options);
    m_worker->moveToThread(&m_thread);
    connect(m_worker, &PollerWorker::finished, &m_thread, &QThread::quit, Qt::DirectConnection);
    connect(&m_thread, &QThread::started, m_worker, &PollerWorker::begin);
}

ControllerPoller::~ControllerPoller()
{
    stop();
    delete m_worker;
}

void ControllerPoller::start()
{
    if (!m_thread.isRunning())
        m_thread.start();
}

void ControllerPoller::stop()
{
    if (!m_thread.isRunning())
        return;
    m_worker->requestStop();
    m_thread.wait();
}

void ControllerPoller::submitWrite(const QByteArray &payload)
{
    m_worker->enqueueWrite(payload);
}

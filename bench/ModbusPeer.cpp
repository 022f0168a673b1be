#include "ModbusPeer.h"

#include <modbus.h>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

ModbusPeer::~ModbusPeer()
{
    // The client going away ends the server's loop; shutting the listener
    // ends an accept that never got its client.
    if (m_client) {
        modbus_close(m_client);
        modbus_free(m_client);
    }
    if (m_listener >= 0)
        ::shutdown(m_listener, SHUT_RDWR);
    if (m_thread.joinable())
        m_thread.join();
    if (m_listener >= 0)
        ::close(m_listener);
    if (m_server) {
        modbus_close(m_server);
        modbus_free(m_server);
    }
    if (m_mapping)
        modbus_mapping_free(m_mapping);
}

bool ModbusPeer::start(const QString &host, int registers, QString *why)
{
    const QByteArray address = host.toLatin1();
    m_mapping = modbus_mapping_new(0, 0, registers, 0);
    m_server = modbus_new_tcp(address.constData(), 0); // port 0: one the system picks
    if (!m_mapping || !m_server) {
        *why = QStringLiteral("libmodbus: %1").arg(QString::fromLocal8Bit(modbus_strerror(errno)));
        return false;
    }
    m_listener = modbus_tcp_listen(m_server, 1);
    sockaddr_in bound{};
    socklen_t size = sizeof bound;
    if (m_listener < 0 || ::getsockname(m_listener, reinterpret_cast<sockaddr *>(&bound), &size) != 0) {
        *why = QStringLiteral("libmodbus cannot listen on %1: %2")
                   .arg(host, QString::fromLocal8Bit(modbus_strerror(errno)));
        return false;
    }
    m_thread = std::thread([this] { serve(); });

    m_client = modbus_new_tcp(address.constData(), ntohs(bound.sin_port));
    if (!m_client || modbus_connect(m_client) != 0) {
        *why =
            QStringLiteral("libmodbus client cannot connect: %1").arg(QString::fromLocal8Bit(modbus_strerror(errno)));
        return false;
    }
    return true;
}

void ModbusPeer::serve()
{
    // Accepted here rather than by modbus_tcp_accept, so that the listener
    // stays ours to close whatever happens.
    const int connection = ::accept(m_listener, nullptr, nullptr);
    if (connection < 0)
        return;
    modbus_set_socket(m_server, connection);
    uint8_t request[MODBUS_TCP_MAX_ADU_LENGTH];
    for (;;) {
        const int size = modbus_receive(m_server, request);
        if (size > 0)
            modbus_reply(m_server, request, size, m_mapping);
        else if (size < 0)
            return; // the client closed, or the line broke
    }
}

int ModbusPeer::readRegisters(int count, uint16_t *out)
{
    return m_client ? modbus_read_registers(m_client, 0, count, out) : -1;
}

void ModbusPeer::setRegister(int index, uint16_t value)
{
    if (m_mapping && index >= 0 && index < m_mapping->nb_registers)
        m_mapping->tab_registers[index] = value;
}

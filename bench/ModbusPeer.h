#pragma once

// The peer users would otherwise pick: a Modbus TCP server of libmodbus on a
// thread of its own and a libmodbus client connected to it over loopback.
// Built only where libmodbus is installed.

#include <QString>

#include <cstdint>
#include <thread>

struct _modbus;

class ModbusPeer
{
public:
    ModbusPeer() = default;
    ~ModbusPeer();
    ModbusPeer(const ModbusPeer &) = delete;
    ModbusPeer &operator=(const ModbusPeer &) = delete;

    // Serves `registers` holding registers on `host` and connects the client.
    bool start(const QString &host, int registers, QString *why);
    // modbus_read_registers of `count` registers from address 0; the count read, -1 on failure.
    int readRegisters(int count, uint16_t *out);
    // Sets holding register `index` on the server side.
    void setRegister(int index, uint16_t value);

private:
    void serve();

    _modbus *m_server = nullptr;
    _modbus *m_client = nullptr;
    struct _modbus_mapping_t *m_mapping = nullptr;
    int m_listener = -1;
    std::thread m_thread;
};

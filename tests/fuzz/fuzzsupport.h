// SPDX-License-Identifier: GPL-3.0-or-later
// Shared by the fuzz harnesses: the Qt application object they need, a check that stops the run on a broken
// property, and a reader that takes typed values off the front of the fuzz input.
#pragma once

#include <QCoreApplication>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

// A violated property is a finding like a crash: libFuzzer keeps the input and CTest's replay fails.
#define FUZZ_CHECK(condition)                                                                                          \
    do {                                                                                                               \
        if (!(condition)) {                                                                                            \
            std::fprintf(stderr, "%s:%d: property does not hold: %s\n", __FILE__, __LINE__, #condition);               \
            std::abort();                                                                                              \
        }                                                                                                              \
    } while (false)

namespace FuzzSupport {

/**
 * One QCoreApplication for the whole run, created on first use (file watchers and settings need it). Warnings
 * about the inputs (an unreadable settings file, say) are expected by the thousand and dropped.
 */
inline void ensureApplication()
{
    if (QCoreApplication::instance())
        return;
    qInstallMessageHandler([](QtMsgType type, const QMessageLogContext&, const QString& message) {
        if (type == QtCriticalMsg || type == QtFatalMsg)
            std::fprintf(stderr, "%s\n", qPrintable(message));
    });
    static int argc = 1;
    static char name[] = "ordalis-fuzz";
    static char* argv[] = { name, nullptr };
    static QCoreApplication application(argc, argv);
}

/** Takes values off the front of the input; once it runs dry every value reads as zero. */
class Reader
{
public:
    Reader(const std::uint8_t* data, std::size_t size)
        : m_data(data)
        , m_size(size)
    {
    }

    bool atEnd() const { return m_size == 0; }
    std::size_t remaining() const { return m_size; }

    template <typename T> T take()
    {
        T value {};
        const std::size_t n = sizeof(T) < m_size ? sizeof(T) : m_size;
        if (n > 0)
            std::memcpy(&value, m_data, n);
        m_data += n;
        m_size -= n;
        return value;
    }

private:
    const std::uint8_t* m_data;
    std::size_t m_size;
};

} // namespace FuzzSupport

// SPDX-License-Identifier: GPL-3.0-or-later
#include "input/recordingsources.h"

#include "input/pipewirerecordingsource.h"

#include <QFile>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string_view>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

using namespace std::string_view_literals;

namespace {

// The kernel keeps the first 15 bytes of an executable's name as the process's `comm`.
constexpr std::size_t commLength = 15;

// As `comm` shows them: simplescreenrecorder and gpu-screen-recorder are cut short.
constexpr std::array recorderComms {
    "obs"sv, "simplescreenrec"sv, "gpu-screen-reco"sv, "vokoscreenNG"sv, "wf-recorder"sv, "peek"sv, "kooha"sv,
    "kazam"sv, "recordmydesktop"sv,
};

// General tools that only count while their command line reads from the screen.
constexpr std::array grabberComms { "ffmpeg"sv, "gst-launch-1.0"sv };
constexpr std::array screenInputs { "x11grab"sv, "kmsgrab"sv, "ximagesrc"sv, "pipewiresrc"sv };

// A recorder run as a script, `python3 /usr/bin/kazam` or `sh ./kazam`, shows the interpreter as its `comm`.
constexpr std::array shellComms { "sh"sv, "bash"sv, "dash"sv };

// The most of a command line that is looked at; screen inputs come long before this.
constexpr std::size_t bufferSize = 32 * 1024;

template<std::size_t N>
bool isOneOf(std::string_view name, const std::array<std::string_view, N>& names)
{
    return std::ranges::find(names, name) != names.end();
}

bool isRecorderName(std::string_view name)
{
    return isOneOf(name.substr(0, commLength), recorderComms);
}

bool isInterpreter(std::string_view comm)
{
    return comm.starts_with("python"sv) || isOneOf(comm, shellComms);
}

/**
 * Reads up to `size` bytes of the file at `path` below `dirFd` into `buffer`. None when the file is gone or cannot
 * be read, as happens when its process exits during the scan.
 */
std::optional<std::string_view> readEntry(int dirFd, const char* path, char* buffer, std::size_t size)
{
    const int fd = ::openat(dirFd, path, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (fd < 0)
        return std::nullopt;
    std::size_t filled = 0;
    bool failed = false;
    while (filled < size) {
        const ssize_t count = ::read(fd, buffer + filled, size - filled);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            failed = true;
        if (count <= 0)
            break;
        filled += std::size_t(count);
    }
    ::close(fd);
    if (failed)
        return std::nullopt;
    return std::string_view(buffer, filled);
}

/** The arguments after the program in a NUL-separated command line, one at a time. */
class Arguments
{
public:
    explicit Arguments(std::string_view cmdline)
        : m_rest(cmdline)
    {
        next(); // the program itself
    }

    std::optional<std::string_view> next()
    {
        if (m_rest.empty())
            return std::nullopt;
        const std::size_t end = m_rest.find('\0');
        const std::string_view argument = m_rest.substr(0, end);
        m_rest = end == std::string_view::npos ? std::string_view() : m_rest.substr(end + 1);
        return argument;
    }

private:
    std::string_view m_rest;
};

/** Whether an interpreter's command line runs a known recorder: its first argument that is not an option. */
bool runsRecorderScript(std::string_view cmdline)
{
    Arguments arguments(cmdline);
    while (const auto argument = arguments.next()) {
        if (argument->empty() || argument->starts_with('-'))
            continue;
        const std::size_t slash = argument->rfind('/');
        return isRecorderName(slash == std::string_view::npos ? *argument : argument->substr(slash + 1));
    }
    return false;
}

bool grabsScreen(std::string_view cmdline)
{
    // No input name holds a NUL, so a match never straddles two arguments.
    return std::ranges::any_of(screenInputs, [cmdline](std::string_view input) {
        return cmdline.find(input) != std::string_view::npos;
    });
}

bool isPid(const char* name)
{
    if (*name == '\0')
        return false;
    for (; *name != '\0'; ++name) {
        if (*name < '0' || *name > '9')
            return false;
    }
    return true;
}

} // namespace

RecorderProcessSource::RecorderProcessSource(const QString& procRoot)
    : m_procRoot(QFile::encodeName(procRoot))
{
}

bool RecorderProcessSource::isRecording()
{
    DIR* const dir = ::opendir(m_procRoot.constData());
    if (dir == nullptr)
        return false;
    if (m_buffer.size() < bufferSize)
        m_buffer.resize(bufferSize);
    const bool full = m_scan++ % fullScanEvery == 0;
    if (full)
        m_plain.clear();
    m_nextPlain.clear();
    bool found = false;
    while (!found) {
        const dirent* const entry = ::readdir(dir);
        if (entry == nullptr)
            break;
        if (!isPid(entry->d_name))
            continue;
        const long pid = std::strtol(entry->d_name, nullptr, 10);
        if (std::binary_search(m_plain.begin(), m_plain.end(), pid)) {
            m_nextPlain.push_back(pid);
            continue;
        }
        switch (judge(::dirfd(dir), entry->d_name)) {
        case Verdict::recorder:
            found = true;
            break;
        case Verdict::plain:
            m_nextPlain.push_back(pid);
            break;
        case Verdict::other:
            break;
        }
    }
    ::closedir(dir);
    // Processes that ended drop out; those after a recorder that was found are read again next time.
    std::sort(m_nextPlain.begin(), m_nextPlain.end());
    std::swap(m_plain, m_nextPlain);
    return found;
}

RecorderProcessSource::Verdict RecorderProcessSource::judge(int procFd, const char* pid)
{
    // A PID has at most 10 digits, so the path always fits.
    std::array<char, 32> path {};
    std::snprintf(path.data(), path.size(), "%s/comm", pid);
    auto comm = readEntry(procFd, path.data(), m_buffer.data(), commLength + 1);
    if (!comm)
        return Verdict::other;
    if (comm->ends_with('\n'))
        comm->remove_suffix(1);
    if (isRecorderName(*comm))
        return Verdict::recorder;

    const bool grabber = isOneOf(*comm, grabberComms);
    if (!grabber && !isInterpreter(*comm))
        return Verdict::plain;
    std::snprintf(path.data(), path.size(), "%s/cmdline", pid);
    const auto cmdline = readEntry(procFd, path.data(), m_buffer.data(), m_buffer.size());
    if (!cmdline)
        return Verdict::other;
    return (grabber ? grabsScreen(*cmdline) : runsRecorderScript(*cmdline)) ? Verdict::recorder : Verdict::other;
}

void CombinedRecordingSource::add(std::unique_ptr<RecordingSource> source)
{
    if (source)
        m_sources.push_back(std::move(source));
}

bool CombinedRecordingSource::isRecording()
{
    return std::ranges::any_of(m_sources, [](const std::unique_ptr<RecordingSource>& source) {
        try {
            return source->isRecording();
        } catch (...) {
            return false;
        }
    });
}

std::unique_ptr<RecordingSource> makeSystemRecordingSource()
{
    auto combined = std::make_unique<CombinedRecordingSource>();
    combined->add(std::make_unique<RecorderProcessSource>());
    combined->add(std::make_unique<PipeWireRecordingSource>());
    return combined;
}

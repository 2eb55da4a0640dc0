// SPDX-License-Identifier: GPL-3.0-or-later
#include "input/recordingsources.h"

#include "input/pipewirerecordingsource.h"

#include <QFile>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace std::string_view_literals;

namespace {

// The kernel keeps the first 15 bytes of an executable's name as the process's `comm`.
constexpr std::size_t commLength = 15;

// As `comm` shows them: simplescreenrecorder and gpu-screen-recorder are cut short.
constexpr std::array recorderComms {
    "obs"sv, "obs-ffmpeg-mux"sv, "simplescreenrec"sv, "gpu-screen-reco"sv, "vokoscreenNG"sv, "wf-recorder"sv,
    "peek"sv, "kooha"sv, "kazam"sv, "recordmydesktop"sv,
};

// The one recorder that streams over RTMPS, on port 443.
constexpr auto httpsStreamer = "obs"sv;

// General tools that only count while their command line reads from the screen.
constexpr std::array grabberComms { "ffmpeg"sv, "gst-launch-1.0"sv };
constexpr std::array screenInputs { "x11grab"sv, "kmsgrab"sv, "ximagesrc"sv, "pipewiresrc"sv };

// A recorder run as a script, `python3 /usr/bin/kazam` or `sh ./kazam`, shows the interpreter as its `comm`.
constexpr std::array shellComms { "sh"sv, "bash"sv, "dash"sv };

// The most of a command line that is looked at; screen inputs come long before this.
constexpr std::size_t bufferSize = 32 * 1024;

// What recorders write, lower case: the usual containers, Peek's GIFs and the temporary file Kazam records into.
constexpr std::array videoExtensions {
    "mkv"sv, "mp4"sv, "mov"sv, "webm"sv, "flv"sv, "ts"sv, "m4v"sv, "m4s"sv, "avi"sv, "ogv"sv, "ogg"sv, "gif"sv,
    "movie"sv,
};
// recordMyDesktop caches frames and sound in a folder of this name and encodes them when the recording ends.
constexpr auto rmdSessionFolder = "/rMD-session-"sv;
// How readlink shows an open file that has been deleted.
constexpr auto deletedMark = " (deleted)"sv;

constexpr auto socketPrefix = "socket:["sv;
constexpr std::string_view tcpEstablished = "01"sv;
constexpr unsigned rtmpPort = 1935;
constexpr unsigned httpsPort = 443;
// The columns of /proc/net/tcp and tcp6 up to the socket's inode.
constexpr std::size_t tcpRemoteColumn = 2;
constexpr std::size_t tcpStateColumn = 3;
constexpr std::size_t tcpInodeColumn = 9;

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

template<typename Number>
std::optional<Number> parseNumber(std::string_view text, int base)
{
    Number value {};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    if (error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return value;
}

bool isVideoPath(std::string_view path)
{
    // Sockets, pipes and the like read `socket:[123]`, `pipe:[123]`, `anon_inode:...`.
    if (!path.starts_with('/'))
        return false;
    if (path.ends_with(deletedMark))
        path.remove_suffix(deletedMark.size());
    if (path.find(rmdSessionFolder) != std::string_view::npos)
        return true;
    const std::size_t dot = path.rfind('.');
    if (dot == std::string_view::npos || dot < path.rfind('/'))
        return false;
    const std::string_view extension = path.substr(dot + 1);
    return std::ranges::any_of(videoExtensions, [extension](std::string_view known) {
        return std::ranges::equal(
            extension, known, [](char a, char b) { return (a >= 'A' && a <= 'Z' ? char(a - 'A' + 'a') : a) == b; });
    });
}

/** Whether an fdinfo file's `flags:` line (octal, as open(2) took them) allows writing. */
bool openForWriting(std::string_view fdinfo)
{
    constexpr auto key = "flags:"sv;
    std::size_t at = fdinfo.find(key);
    if (at == std::string_view::npos || (at > 0 && fdinfo[at - 1] != '\n'))
        return false;
    std::string_view value = fdinfo.substr(at + key.size());
    value.remove_prefix(std::min(value.find_first_not_of(" \t"sv), value.size()));
    value = value.substr(0, value.find('\n'));
    const auto flags = parseNumber<unsigned>(value, 8);
    if (!flags)
        return false;
    const unsigned mode = *flags & unsigned(O_ACCMODE);
    return mode == unsigned(O_WRONLY) || mode == unsigned(O_RDWR);
}

/** A line of /proc/net/tcp or tcp6: whether it is an established connection, to which port, of which socket. */
struct TcpLine
{
    bool established = false;
    unsigned remotePort = 0;
    std::uint64_t inode = 0;
};

std::optional<TcpLine> parseTcpLine(std::string_view line)
{
    std::array<std::string_view, tcpInodeColumn + 1> columns;
    for (std::string_view& column : columns) {
        const std::size_t start = line.find_first_not_of(' ');
        if (start == std::string_view::npos)
            return std::nullopt; // the header has fewer columns before its text runs out
        line.remove_prefix(start);
        column = line.substr(0, line.find(' '));
        line.remove_prefix(column.size());
    }
    const std::string_view remote = columns[tcpRemoteColumn];
    const std::size_t colon = remote.rfind(':');
    if (colon == std::string_view::npos)
        return std::nullopt;
    const auto port = parseNumber<unsigned>(remote.substr(colon + 1), 16);
    const auto inode = parseNumber<std::uint64_t>(columns[tcpInodeColumn], 10);
    if (!port || !inode)
        return std::nullopt;
    return TcpLine { columns[tcpStateColumn] == tcpEstablished, *port, *inode };
}

/**
 * Calls `handle` with each line of the file at `path` below `dirFd`, read through `buffer`; a line longer than the
 * buffer is skipped. Nothing happens when the file cannot be opened.
 */
template<typename Handle>
void forEachLine(int dirFd, const char* path, std::vector<char>& buffer, Handle handle)
{
    const int fd = ::openat(dirFd, path, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (fd < 0)
        return;
    std::size_t kept = 0;
    while (true) {
        const ssize_t count = ::read(fd, buffer.data() + kept, buffer.size() - kept);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            break;
        std::string_view data(buffer.data(), kept + std::size_t(count));
        for (std::size_t end = data.find('\n'); end != std::string_view::npos; end = data.find('\n')) {
            handle(data.substr(0, end));
            data.remove_prefix(end + 1);
        }
        kept = data.size() == buffer.size() ? 0 : data.size();
        std::memmove(buffer.data(), data.data(), kept);
    }
    ::close(fd);
    if (kept > 0)
        handle(std::string_view(buffer.data(), kept));
}

} // namespace

RecorderProcessSource::RecorderProcessSource(const QString& procRoot)
    : m_procRoot(QFile::encodeName(procRoot))
{
}

bool RecorderProcessSource::isRecording()
{
    DIR* const dir = ::opendir(m_procRoot.constData());
    if (dir == nullptr) {
        m_files.clear();
        m_connections.clear();
        return false;
    }
    if (m_buffer.size() < bufferSize)
        m_buffer.resize(bufferSize);
    const bool full = m_scan++ % fullScanEvery == 0;
    if (full)
        m_plain.clear();
    m_nextPlain.clear();
    m_nextFiles.clear();
    m_nextConnections.clear();
    // Every recorder is looked at even after one was found recording, so that what is known of each is always from
    // the check before.
    bool found = false;
    while (const dirent* const entry = ::readdir(dir)) {
        if (!isPid(entry->d_name))
            continue;
        const long pid = std::strtol(entry->d_name, nullptr, 10);
        if (std::binary_search(m_plain.begin(), m_plain.end(), pid)) {
            m_nextPlain.push_back(pid);
            continue;
        }
        switch (judge(::dirfd(dir), entry->d_name)) {
        case Verdict::recording:
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
    // Processes that ended drop out.
    std::sort(m_nextPlain.begin(), m_nextPlain.end());
    std::swap(m_plain, m_nextPlain);
    std::swap(m_files, m_nextFiles);
    std::swap(m_connections, m_nextConnections);
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
    // The name is read from the buffer that the open files are read into next.
    const bool overHttps = *comm == httpsStreamer;
    if (isRecorderName(*comm))
        return isActive(procFd, pid, overHttps) ? Verdict::recording : Verdict::other;

    const bool grabber = isOneOf(*comm, grabberComms);
    if (!grabber && !isInterpreter(*comm))
        return Verdict::plain;
    std::snprintf(path.data(), path.size(), "%s/cmdline", pid);
    const auto cmdline = readEntry(procFd, path.data(), m_buffer.data(), m_buffer.size());
    if (!cmdline)
        return Verdict::other;
    if (grabber)
        return grabsScreen(*cmdline) ? Verdict::recording : Verdict::other;
    return runsRecorderScript(*cmdline) && isActive(procFd, pid, false) ? Verdict::recording : Verdict::other;
}

bool RecorderProcessSource::isActive(int procFd, const char* pid, bool overHttps)
{
    const long number = std::strtol(pid, nullptr, 10);
    m_sockets.clear();
    // Streams are looked for only while no file is written: the two are rarely apart, and files are cheaper.
    return writesVideo(procFd, pid, number) || (!m_sockets.empty() && streams(procFd, pid, number, overHttps));
}

bool RecorderProcessSource::writesVideo(int procFd, const char* pid, long number)
{
    // Room for the PID, the folder names and any name a directory entry can have.
    std::array<char, 32 + sizeof(dirent::d_name)> path {};
    std::snprintf(path.data(), path.size(), "%s/fd", pid);
    const int fdDirFd = ::openat(procFd, path.data(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fdDirFd < 0)
        return false;
    DIR* const fdDir = ::fdopendir(fdDirFd);
    if (fdDir == nullptr) {
        ::close(fdDirFd);
        return false;
    }
    bool writing = false;
    while (const dirent* const entry = ::readdir(fdDir)) {
        if (!isPid(entry->d_name))
            continue;
        const ssize_t length = ::readlinkat(fdDirFd, entry->d_name, m_buffer.data(), m_buffer.size());
        if (length <= 0)
            continue;
        const std::string_view target(m_buffer.data(), std::size_t(length));
        if (target.starts_with(socketPrefix) && target.ends_with(']')) {
            if (const auto inode = parseNumber<std::uint64_t>(
                    target.substr(socketPrefix.size(), target.size() - socketPrefix.size() - 1), 10))
                m_sockets.push_back(*inode);
            continue;
        }
        if (!isVideoPath(target))
            continue;
        // Through the link, so a file deleted since it was opened is still found.
        struct stat status
        {
        };
        if (::fstatat(fdDirFd, entry->d_name, &status, 0) != 0 || !S_ISREG(status.st_mode))
            continue;
        std::snprintf(path.data(), path.size(), "%s/fdinfo/%s", pid, entry->d_name);
        const auto fdinfo = readEntry(procFd, path.data(), m_buffer.data(), 256);
        if (!fdinfo || !openForWriting(*fdinfo))
            continue;
        const WrittenFile file { number, std::atoi(entry->d_name), std::uint64_t(status.st_dev),
            std::uint64_t(status.st_ino), std::int64_t(status.st_size) };
        // New since the last check (just opened, or a recorder just seen), or grown or cut since.
        const auto before = std::ranges::find_if(m_files, [&file](const WrittenFile& known) {
            return known.pid == file.pid && known.fd == file.fd && known.device == file.device
                && known.inode == file.inode;
        });
        if (before == m_files.end() || before->size != file.size)
            writing = true;
        m_nextFiles.push_back(file);
    }
    ::closedir(fdDir);
    return writing;
}

bool RecorderProcessSource::streams(int procFd, const char* pid, long number, bool overHttps)
{
    std::ranges::sort(m_sockets);
    bool streaming = false;
    // The tables list every connection of the process's network namespace; its own are found by their inodes.
    const auto handle = [&](std::string_view line) {
        const auto tcp = parseTcpLine(line);
        if (!tcp || !tcp->established || !std::ranges::binary_search(m_sockets, tcp->inode))
            return;
        if (tcp->remotePort == rtmpPort) {
            streaming = true;
        } else if (tcp->remotePort == httpsPort && overHttps) {
            const Connection connection { number, tcp->inode };
            streaming = streaming || std::ranges::any_of(m_connections, [&connection](const Connection& known) {
                return known.pid == connection.pid && known.inode == connection.inode;
            });
            m_nextConnections.push_back(connection);
        }
    };
    std::array<char, 64> path {};
    for (const char* table : { "tcp", "tcp6" }) {
        std::snprintf(path.data(), path.size(), "%s/net/%s", pid, table);
        forEachLine(procFd, path.data(), m_buffer, handle);
    }
    return streaming;
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

// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QByteArray>
#include <QString>

#include <cstdint>
#include <memory>
#include <vector>

/**
 * One way of telling whether the screen is being recorded. Linux has no single recording indicator, so the answer
 * is pieced together from several sources, each cheap enough to ask every couple of seconds on the main thread.
 *
 * A source that cannot tell (a missing file, no permission, a service that is not running) answers false.
 */
class RecordingSource
{
public:
    RecordingSource() = default;
    virtual ~RecordingSource() = default;
    RecordingSource(const RecordingSource&) = delete;
    RecordingSource& operator=(const RecordingSource&) = delete;

    virtual bool isRecording() = 0;
};

/**
 * A recording is running when a well-known screen recorder records or streams: OBS Studio (also its muxer,
 * obs-ffmpeg-mux), SimpleScreenRecorder, gpu-screen-recorder, vokoscreenNG, wf-recorder, Peek, Kooha, Kazam or
 * recordMyDesktop, also when started through an interpreter (`python3 /usr/bin/kazam`). An open recorder alone is
 * not a recording; it counts while
 * - it has a video file open for writing (by its name: .mkv, .mp4, .webm, .gif, Kazam's .movie, recordMyDesktop's
 *   session cache and the like) that is new since the last check or has changed size since. A recording that has
 *   just started counts at the first check, one that is paused or stopped no longer counts two checks later;
 * - it has an established TCP connection to port 1935 (RTMP); for OBS also to port 443 (RTMPS), there only when the
 *   same connection was already established at the last check, as OBS also fetches updates and service lists over
 *   HTTPS for a moment after starting.
 * ffmpeg and gst-launch-1.0 count while their command line grabs the screen (x11grab, kmsgrab, ximagesrc,
 * pipewiresrc): they are started for that alone.
 *
 * One poll reads the process directory once and each process's `comm`; `cmdline` only for ffmpeg, gst-launch and
 * interpreters; the open files only of recorders, and their TCP tables only when they have sockets and no video file
 * being written. Processes that vanish or cannot be read during the scan are skipped. With /proc mounted `hidepid`
 * only the user's own processes are seen, which are the ones that matter.
 */
class RecorderProcessSource final : public RecordingSource
{
public:
    /** `procRoot` is where the process directories live: /proc, or a tree made up by a test. */
    explicit RecorderProcessSource(const QString& procRoot = QStringLiteral("/proc"));

    bool isRecording() override;

    /**
     * Every this many scans, each process is looked at again. In between, a process whose name can make it neither
     * a recorder nor a screen grabber nor a recorder's script is not read again: it could only become one by
     * starting another program in its place, and a program started the usual way (fork, then exec) is seen under
     * its own name by every scan but one that falls in the microseconds between the two.
     */
    static constexpr int fullScanEvery = 8;

private:
    enum class Verdict
    {
        recording,
        /** Cannot be a recorder under its current name. */
        plain,
        /** Not recording now; its command line decides another time. */
        other,
    };
    Verdict judge(int procFd, const char* pid);
    /** Whether the recorder `pid` writes a video file or streams; `overHttps` lets port 443 count. */
    bool isActive(int procFd, const char* pid, bool overHttps);
    bool writesVideo(int procFd, const char* pid, long number);
    bool streams(int procFd, const char* pid, long number, bool overHttps);

    /** A video file a recorder had open for writing at the last check. */
    struct WrittenFile
    {
        long pid;
        int fd;
        std::uint64_t device;
        std::uint64_t inode;
        std::int64_t size;
    };
    /** A recorder's connection to port 443 that was established at the last check. */
    struct Connection
    {
        long pid;
        std::uint64_t inode;
    };

    QByteArray m_procRoot;
    // Kept between polls so a scan allocates nothing.
    std::vector<char> m_buffer;
    // Sorted PIDs found plain by the last scans, and those of the scan under way.
    std::vector<long> m_plain;
    std::vector<long> m_nextPlain;
    // What the last scan saw of each recorder, and what the scan under way sees; processes that ended drop out.
    std::vector<WrittenFile> m_files;
    std::vector<WrittenFile> m_nextFiles;
    std::vector<Connection> m_connections;
    std::vector<Connection> m_nextConnections;
    // The socket inodes of the recorder being looked at, sorted.
    std::vector<std::uint64_t> m_sockets;
    int m_scan = 0;
};

/** True when any of its sources is; one that throws counts as false and the others are still asked. */
class CombinedRecordingSource final : public RecordingSource
{
public:
    void add(std::unique_ptr<RecordingSource> source);
    bool isRecording() override;

private:
    std::vector<std::unique_ptr<RecordingSource>> m_sources;
};

/**
 * The sources the running program asks: the recorder processes, then PipeWire's screen casts (the desktop portal's
 * and the built-in recorders of GNOME and KDE, which run in no process of their own).
 */
std::unique_ptr<RecordingSource> makeSystemRecordingSource();

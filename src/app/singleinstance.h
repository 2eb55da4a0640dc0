// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>

#include <functional>
#include <optional>

class QLocalServer;
class QLocalSocket;
struct RemoteCommand;

/**
 * One Ordalis per user session. The first instance listens on a local socket named after the user; a later one
 * finds it there, sends it one request and ends. A socket left behind by an instance that crashed answers nobody
 * and is replaced.
 *
 * The conversation is line by line: each request line (see RemoteCommand, e.g. "show", "hide", "theme Black") gets
 * one reply line, "ok" or "error <text>". After the reply to "quit" the instance stops listening and keeps the
 * connection open until it has ended, so that the sender can wait for that. Lines longer than maxRequestLength end
 * the connection; lines that are no request get "error unknown request". Senders from before replies existed only
 * ever sent "show" and closed at once, which still works.
 *
 * Main thread only, except ask(), which needs no Qt application object at all.
 */
class SingleInstance final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(SingleInstance)

public:
    enum class Role {
        /** This is the instance: it listens, and the handler (or showRequested()) serves later starts. */
        primary,
        /** Another instance runs and was sent the request; answer() holds its reply. This one should end. */
        secondary,
        /** Neither listening nor reaching another instance worked; this one runs on its own. */
        alone,
    };
    Q_ENUM(Role)

    /** What a running instance said to a request. */
    struct Answer
    {
        enum class Status {
            /** No instance listens at that name. */
            noInstance,
            /** The instance replied; `reply` holds the line without its line break. */
            replied,
            /** The instance closed the connection without replying (as instances from before replies did). */
            closedWithoutReply,
            /** The instance took the connection but did not reply in time. */
            noReply,
        };
        Status status = Status::noInstance;
        QByteArray reply;

        bool reached() const { return status != Status::noInstance; }
        /** The text after "error ", when the reply is an error. */
        std::optional<QString> error() const;
    };

    /** The request an earlier version sent, and the default one. */
    static constexpr char showMessage[] = "show";
    /** The longest request line taken, in bytes without the line break. */
    static constexpr qsizetype maxRequestLength = 8192;
    /** Milliseconds a sender waits for the connection and for the reply. */
    static constexpr int replyTimeout = 10000;

    /** "ordalis-<uid>" in $XDG_RUNTIME_DIR, or in the temporary folder without one. */
    static QString defaultServerName();

    /**
     * Sends `request` (one line, without its line break) to the instance listening at `serverName` and waits for
     * the reply; with `waitForEnd` then also until the instance closes the connection (it does so as it ends).
     * Plain blocking socket calls: works before any Qt application object exists.
     */
    static Answer ask(const QString& serverName, const QByteArray& request, bool waitForEnd = false);

    explicit SingleInstance(const QString& serverName = defaultServerName(), QObject* parent = nullptr);
    ~SingleInstance() override;

    QString serverName() const { return m_serverName; }

    /**
     * Becomes the listening instance, or sends `request` to the running one (its reply is in answer()). Call once.
     */
    Role claim(const QByteArray& request = showMessage);

    /** The running instance's reply, after claim() found one. */
    const Answer& answer() const { return m_answer; }

    /**
     * Serves the requests of later starts: returns the error text for the reply, or none for "ok". Without a
     * handler only "show" is served, through showRequested().
     */
    using Handler = std::function<std::optional<QString>(const RemoteCommand&)>;
    void setHandler(Handler handler) { m_handler = std::move(handler); }

signals:
    /** A later start asked for the keyboard ("show"); emitted whether or not a handler is set. */
    void showRequested();

private:
    bool listen();
    void stopListening();
    void onNewConnection();
    void onReadable(QLocalSocket* socket);
    /** The reply line for `line`, and whether the request was "quit" and succeeded. */
    QByteArray serve(const QByteArray& line, bool& quitting);

    QString m_serverName;
    QLocalServer* m_server = nullptr;
    Answer m_answer;
    Handler m_handler;
};

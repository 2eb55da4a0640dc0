// SPDX-License-Identifier: GPL-3.0-or-later
#include "input/keyhelperbackend.h"

#include "input/keyhelperstream.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QTimer>

using namespace Qt::StringLiterals;

namespace {

// Bounds the work done per wake-up, so that a helper flooding records cannot starve the event loop: the rest is
// read on the next turn of the loop.
constexpr qint64 maxBytesPerRead = 64 * 1024;

// pkexec's exit statuses when the helper did not run.
constexpr int pkexecDismissed = 126;
constexpr int pkexecNotAuthorized = 127;

QString helperPath()
{
    QStringList candidates;
#ifdef ORDALIS_KEYHELPER_INSTALLED_PATH
    candidates.append(QStringLiteral(ORDALIS_KEYHELPER_INSTALLED_PATH));
#endif
    // A build tree keeps the helper beside the program, or where the build put it.
    candidates.append(QDir(QCoreApplication::applicationDirPath()).filePath(u"ordalis-keyhelper"_s));
#ifdef ORDALIS_KEYHELPER_BUILD_PATH
    candidates.append(QStringLiteral(ORDALIS_KEYHELPER_BUILD_PATH));
#endif
    for (const QString& path : std::as_const(candidates)) {
        const QFileInfo info(path);
        if (info.isFile() && info.isExecutable())
            return info.absoluteFilePath();
    }
    return {};
}

QString tryAgainText()
{
    return KeyHelperBackend::tr("Choose \"Allow Key Access…\" in the Ordalis menu to try again.");
}

} // namespace

std::optional<KeyHelperBackend::Launch> KeyHelperBackend::defaultLaunch()
{
    const QString helper = helperPath();
    if (helper.isEmpty())
        return std::nullopt;
    QString launcher = qEnvironmentVariable("ORDALIS_KEYHELPER_LAUNCHER");
    if (launcher.isEmpty())
        launcher = QStandardPaths::findExecutable(u"pkexec"_s);
    if (launcher.isEmpty())
        return std::nullopt;
    return Launch { launcher, { helper } };
}

KeyHelperBackend::KeyHelperBackend(QObject* parent)
    : KeyHelperBackend(defaultLaunch(), parent)
{
}

KeyHelperBackend::KeyHelperBackend(std::optional<Launch> launch, QObject* parent)
    : InputBackend(parent)
    , m_launch(std::move(launch))
    , m_processor(*this)
{
}

KeyHelperBackend::~KeyHelperBackend()
{
    blockSignals(true);
    endProcess();
    // A helper ends as soon as it sees its input close; it cannot be killed, as it runs as another user. The event
    // loop may have ended already, so wait here rather than leave the process objects to it.
    for (QProcess* process : findChildren<QProcess*>(Qt::FindDirectChildrenOnly)) {
        if (!process->waitForFinished(2000))
            process->kill();
        process->waitForFinished(1000);
    }
}

QString KeyHelperBackend::name() const
{
    return u"helper"_s;
}

InputBackend::Access KeyHelperBackend::access() const
{
    if (m_state == State::running)
        return Access::granted;
    return m_launch ? Access::denied : Access::unavailable;
}

QString KeyHelperBackend::accessHelp() const
{
    if (m_launch)
        return {};
    return tr("Ordalis cannot read the keyboard: its key helper (ordalis-keyhelper) or pkexec is not installed. "
              "Install Ordalis from its package, or see the README's \"Key access\" section for other ways.");
}

bool KeyHelperBackend::start()
{
    return m_state == State::running;
}

void KeyHelperBackend::stop()
{
    m_mayRestart = false;
    endProcess();
    if (m_stream)
        m_stream->finish();
    setState(State::idle);
}

InputBackend::Source KeyHelperBackend::source() const
{
    return m_state == State::running ? Source::helper : Source::none;
}

bool KeyHelperBackend::capsLockOn() const
{
    return m_stream && m_stream->capsLockOn();
}

bool KeyHelperBackend::canRequestAccess() const
{
    return m_launch.has_value() && m_state != State::running;
}

void KeyHelperBackend::requestAccess()
{
    if (!m_launch || m_state == State::running || m_state == State::starting)
        return;
    m_mayRestart = true;
    launch();
}

qint64 KeyHelperBackend::processId() const
{
    return m_process ? m_process->processId() : 0;
}

void KeyHelperBackend::launch()
{
    endProcess();
    // The old stream may still be in the middle of telling someone of a key: it goes on the next turn.
    if (m_stream) {
        m_stream->finish();
        QTimer::singleShot(0, this, [old = m_stream.release()] { delete old; });
    }
    m_stream = std::make_unique<KeyHelperStream>(m_processor);

    m_process = std::make_unique<QProcess>();
    QProcess* process = m_process.get();
    process->setProgram(m_launch->program);
    process->setArguments(m_launch->arguments);
    // The password dialog's complaints are pkexec's business; nothing the helper says is text.
    process->setStandardErrorFile(QProcess::nullDevice());
    connect(process, &QProcess::readyReadStandardOutput, this, [this, process] {
        if (process == m_process.get())
            readOutput();
    });
    connect(process, &QProcess::finished, this, [this, process](int exitCode, QProcess::ExitStatus status) {
        if (process == m_process.get())
            onFinished(exitCode, status == QProcess::CrashExit);
    });
    connect(process, &QProcess::errorOccurred, this, [this, process](QProcess::ProcessError error) {
        if (process == m_process.get() && error == QProcess::FailedToStart)
            onFailedToStart();
    });
    setState(State::starting);
    process->start(QIODevice::ReadWrite);
}

void KeyHelperBackend::readOutput()
{
    m_readScheduled = false;
    if (!m_process || !m_stream)
        return;
    const QByteArray bytes = m_process->read(maxBytesPerRead);
    const bool wasReady = m_stream->isReady();
    const bool fine = m_stream->feed(bytes.constData(), std::size_t(bytes.size()));
    if (!fine) {
        // Whatever sent that is not the helper Ordalis knows: stop listening to it.
        const QString why = m_stream->error();
        m_mayRestart = false;
        endProcess();
        fail(tr("The key helper sent something Ordalis does not understand (%1), so keys are no longer shown.")
                .arg(why));
        return;
    }
    if (!wasReady && m_stream->isReady()) {
        setState(State::running);
        m_processor.refreshLockState();
    }
    if (m_process && m_process->bytesAvailable() > 0 && !m_readScheduled) {
        m_readScheduled = true;
        QTimer::singleShot(0, this, &KeyHelperBackend::readOutput);
    }
}

void KeyHelperBackend::onFinished(int exitCode, bool crashed)
{
    // What it wrote before it ended still counts, releases above all.
    while (m_process && m_stream && m_process->bytesAvailable() > 0 && m_stream->error().isEmpty())
        readOutput();
    const bool wasRunning = m_state == State::running || (m_stream && m_stream->isReady());
    if (m_stream)
        m_stream->finish();
    QProcess* process = m_process.release();
    if (process)
        process->deleteLater();
    if (m_state == State::failed || m_state == State::idle)
        return;

    if (wasRunning) {
        if (m_mayRestart) {
            m_mayRestart = false;
            launch();
            return;
        }
        fail(tr("The key helper stopped, so keys are no longer shown."));
        return;
    }

    if (!crashed && exitCode == pkexecDismissed)
        fail(tr("Key access was not allowed: the password dialog was closed."));
    else if (!crashed && exitCode == pkexecNotAuthorized)
        fail(tr("Key access was refused: you were not authorized, or no password dialog could be shown on this "
                "desktop."));
    else
        fail(tr("The key helper could not start."));
}

void KeyHelperBackend::onFailedToStart()
{
    QProcess* process = m_process.release();
    if (process)
        process->deleteLater();
    if (m_stream)
        m_stream->finish();
    fail(tr("The key helper could not be started (%1 is missing).").arg(m_launch ? m_launch->program : QString()));
}

void KeyHelperBackend::fail(const QString& what)
{
    setState(State::failed);
    emit accessRequestFailed(what + u' ' + tryAgainText());
}

void KeyHelperBackend::setState(State state)
{
    if (m_state == state)
        return;
    m_state = state;
    emit accessChanged();
}

void KeyHelperBackend::endProcess()
{
    QProcess* process = m_process.release();
    if (!process)
        return;
    process->disconnect(this);
    // Ends by itself once its input closes; the object goes when it has, or with this back end.
    process->setParent(this);
    connect(process, &QProcess::finished, process, &QObject::deleteLater);
    if (process->state() == QProcess::NotRunning)
        process->deleteLater();
    else
        process->closeWriteChannel();
}

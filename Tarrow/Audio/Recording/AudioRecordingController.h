#pragma once

#include "Audio/Recording/AudioRecordingWriter.h"

#include <QDateTime>
#include <QObject>
#include <QString>
#include <QUuid>

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>

namespace kelvo {

/// The recording state shown in the recording tile. Owns the writer; the capture feeds the
/// writer from every render buffer. Main thread only.
class AudioRecordingController : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool isRecording READ isRecording NOTIFY isRecordingChanged)
    Q_PROPERTY(QDateTime startedAt READ startedAtOrNull NOTIFY startedAtChanged)
    Q_PROPERTY(QString message READ messageOrEmpty NOTIFY messageChanged)
    Q_PROPERTY(QString errorMessage READ errorMessageOrEmpty NOTIFY errorMessageChanged)
    Q_PROPERTY(QString firstFile READ firstFileOrEmpty NOTIFY firstFileChanged)

public:
    static constexpr const char* savedText = "Recording saved in Downloads.";
    static constexpr const char* captureStoppedText =
        "Recording saved in Downloads. Audio input stopped or changed.";
    static constexpr const char* stoppedPrefix = "Recording stopped: ";
    static constexpr const char* couldNotStartPrefix = "Could not start recording: ";
    static constexpr const char* startHelpText =
        "Record selected input to Downloads • 24-bit WAV • Hourly files";
    static constexpr const char* stopHelpText = "Stop audio recording";

    explicit AudioRecordingController(std::unique_ptr<AudioRecordingWriter> writer = {},
                                      QObject* parent = nullptr);
    ~AudioRecordingController() override;

    /// Starts a recording into `directory` (the Downloads folder when absent) without waiting
    /// for the disk: `firstFile` follows once the part is open. Failures end the recording
    /// with `errorMessage` "Could not start recording: " + the reason.
    void start(int sampleRate, int channels,
               std::optional<std::filesystem::path> directory = std::nullopt);
    /// Ends the recording; `message` becomes `reason`, or "Recording saved in Downloads.".
    /// Does nothing when not recording.
    void stop(std::optional<QString> reason = std::nullopt);

    /// At quit the disk gets this long to take what is queued, and then this long to close.
    static constexpr std::chrono::milliseconds quitWriting{5000};
    static constexpr std::chrono::milliseconds quitClosing{5000};
    static constexpr const char* droppedAtQuitText =
        "Recording stopped: the disk was too slow; the last %1 s were not written.";
    static constexpr const char* unclosedAtQuitText =
        "Recording stopped: the disk did not finish in time; the last part is repaired when "
        "the next recording starts.";
    /// At quit: ends the recording and waits a bounded time for the disk (`quitWriting` plus
    /// `quitClosing` at most); `message` then says what did not reach it. A writer still busy
    /// with the disk is left to end with the process rather than waited for.
    void finishForQuit();

    /// The user's Downloads folder.
    static std::filesystem::path defaultDirectory();

    bool isRecording() const { return isRecording_; }
    const std::optional<QDateTime>& startedAt() const { return startedAt_; }
    const std::optional<QString>& message() const { return message_; }
    const std::optional<QString>& errorMessage() const { return errorMessage_; }
    const std::optional<std::filesystem::path>& firstFile() const { return firstFile_; }
    const QUuid& session() const { return session_; }
    AudioRecordingWriter& writer() {
        if (!writer_) // left to the disk at quit
            writer_ = std::make_unique<AudioRecordingWriter>();
        return *writer_;
    }

    void setMessage(std::optional<QString> message);
    void setErrorMessage(std::optional<QString> message);

signals:
    void isRecordingChanged();
    void startedAtChanged();
    void messageChanged();
    void errorMessageChanged();
    void firstFileChanged();

private:
    void writerFailed(const QUuid& session, const QString& description);
    void writerStarted(const QUuid& session, const AudioRecordingWriter::Started& outcome);
    void setRecording(bool recording);
    void setStartedAt(std::optional<QDateTime> startedAt);
    void setFirstFile(std::optional<std::filesystem::path> file);

    QDateTime startedAtOrNull() const { return startedAt_.value_or(QDateTime()); }
    QString messageOrEmpty() const { return message_.value_or(QString()); }
    QString errorMessageOrEmpty() const { return errorMessage_.value_or(QString()); }
    QString firstFileOrEmpty() const;

    std::unique_ptr<AudioRecordingWriter> writer_;
    // Of the last recording started: the dropped audio is told in seconds.
    int samplesPerSecond_ = 0;
    bool isRecording_ = false;
    std::optional<QDateTime> startedAt_;
    std::optional<QString> message_;
    std::optional<std::filesystem::path> firstFile_;
    std::optional<QString> errorMessage_;
    QUuid session_ = QUuid::createUuid();
    // The recording `stop` ended last: a failure to close its last part still reaches the tile.
    QUuid stoppedSession_;
};

} // namespace kelvo

#include "Audio/Recording/AudioRecordingController.h"

#include "Audio/Recording/RecordingError.h"

#include <QMetaObject>
#include <QPointer>
#include <QStandardPaths>

namespace kelvo {

AudioRecordingController::AudioRecordingController(std::unique_ptr<AudioRecordingWriter> writer,
                                                   QObject* parent)
    : QObject(parent),
      writer_(writer ? std::move(writer) : std::make_unique<AudioRecordingWriter>()) {}

AudioRecordingController::~AudioRecordingController() = default;

std::filesystem::path AudioRecordingController::defaultDirectory() {
    return QStandardPaths::writableLocation(QStandardPaths::DownloadLocation).toStdString();
}

void AudioRecordingController::start(int sampleRate, int channels,
                                     std::optional<std::filesystem::path> directory) {
    if (isRecording_)
        return;
    if (sampleRate < 1 || channels < 1 || channels > WAVRecordingFile::maximumChannels ||
        static_cast<std::int64_t>(sampleRate) * channels >
            WAVRecordingFile::maximumRateTimesChannels) {
        setErrorMessage(QString::fromUtf8(couldNotStartPrefix) +
                        QString::fromUtf8(description(RecordingError::invalidFormat)));
        return;
    }
    const std::filesystem::path folder = directory.value_or(defaultDirectory());

    // The writer thread creates the folder and opens the first part; the tile shows the
    // recording from the click on, and learns the outcome when the disk has answered.
    const QUuid session = QUuid::createUuid();
    QPointer<AudioRecordingController> self(this);
    auto toMainThread = [self](auto report) {
        QMetaObject::invokeMethod(
            self.data(),
            [self, report = std::move(report)] {
                if (self)
                    report(*self);
            },
            Qt::QueuedConnection);
    };
    auto failure = [toMainThread, session](const std::string& text) {
        toMainThread([session, description = QString::fromStdString(text)](
                         AudioRecordingController& c) { c.writerFailed(session, description); });
    };
    auto started = [toMainThread, session](const AudioRecordingWriter::Started& outcome) {
        toMainThread(
            [session, outcome](AudioRecordingController& c) { c.writerStarted(session, outcome); });
    };
    writer().start(sampleRate, channels, folder, std::move(failure), std::move(started));
    samplesPerSecond_ = sampleRate * channels;
    session_ = session;
    stoppedSession_ = QUuid();
    setErrorMessage(std::nullopt);
    setMessage(std::nullopt);
    setFirstFile(std::nullopt);
    setStartedAt(QDateTime::currentDateTime());
    setRecording(true);
}

void AudioRecordingController::writerStarted(const QUuid& session,
                                             const AudioRecordingWriter::Started& outcome) {
    const bool current = session == session_ && isRecording_;
    if (!current && session != stoppedSession_)
        return;
    if (!outcome.error) {
        setFirstFile(outcome.firstFile);
        return;
    }
    const QString reason =
        QString::fromUtf8(couldNotStartPrefix) + QString::fromStdString(*outcome.error);
    if (current) {
        session_ = QUuid::createUuid();
        setStartedAt(std::nullopt);
        setRecording(false);
    } else {
        setMessage(std::nullopt); // stopped before the disk answered: nothing was saved
    }
    setErrorMessage(reason);
}

void AudioRecordingController::finishForQuit() {
    stop();
    const AudioRecordingWriter::Finish finish = writer().finishWithin(quitWriting, quitClosing);
    if (!finish.closed) {
        setMessage(QString::fromUtf8(unclosedAtQuitText));
        // Destroying it would wait for the disk; the process ends with it instead.
        [[maybe_unused]] AudioRecordingWriter* busy = writer_.release();
        return;
    }
    if (finish.droppedSamples > 0 && samplesPerSecond_ > 0)
        setMessage(QString::fromUtf8(droppedAtQuitText)
                       .arg(double(finish.droppedSamples) / samplesPerSecond_, 0, 'f', 1));
}

void AudioRecordingController::stop(std::optional<QString> reason) {
    if (!isRecording_)
        return;
    writer_->stop();
    stoppedSession_ = session_;
    session_ = QUuid::createUuid();
    setStartedAt(std::nullopt);
    setMessage(reason.value_or(QString::fromUtf8(savedText)));
    setRecording(false);
}

void AudioRecordingController::writerFailed(const QUuid& session, const QString& description) {
    if (session == stoppedSession_) {
        // The last part of a stopped recording could not be closed: it is not "saved".
        setMessage(std::nullopt);
        setErrorMessage(QString::fromUtf8(stoppedPrefix) + description);
        return;
    }
    if (session != session_ || !isRecording_)
        return;
    session_ = QUuid::createUuid();
    setStartedAt(std::nullopt);
    setErrorMessage(QString::fromUtf8(stoppedPrefix) + description);
    setRecording(false);
}

void AudioRecordingController::setRecording(bool recording) {
    if (isRecording_ == recording)
        return;
    isRecording_ = recording;
    emit isRecordingChanged();
}

void AudioRecordingController::setStartedAt(std::optional<QDateTime> startedAt) {
    if (startedAt_ == startedAt)
        return;
    startedAt_ = std::move(startedAt);
    emit startedAtChanged();
}

void AudioRecordingController::setMessage(std::optional<QString> message) {
    if (message_ == message)
        return;
    message_ = std::move(message);
    emit messageChanged();
}

void AudioRecordingController::setErrorMessage(std::optional<QString> message) {
    if (errorMessage_ == message)
        return;
    errorMessage_ = std::move(message);
    emit errorMessageChanged();
}

void AudioRecordingController::setFirstFile(std::optional<std::filesystem::path> file) {
    if (firstFile_ == file)
        return;
    firstFile_ = std::move(file);
    emit firstFileChanged();
}

QString AudioRecordingController::firstFileOrEmpty() const {
    return firstFile_ ? QString::fromStdString(firstFile_->string()) : QString();
}

} // namespace kelvo

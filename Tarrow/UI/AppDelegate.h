#pragma once

#include "UI/DropKeyboardController.h"

#include <QObject>
#include <QPointer>
#include <QString>

#include <memory>

class QWindow;

namespace kelvo {

class AppModel;

/// The application's side of the window: the brand font at launch, the drop keys once the window
/// is shown, and the quit order. Holds the model weakly; the window owns it.
class AppDelegate : public QObject {
    Q_OBJECT
public:
    static constexpr const char* brandFontFamily = "Inter";

    explicit AppDelegate(QObject* parent = nullptr);
    ~AppDelegate() override;

    /// Adds the compiled-in brand font to the font database; once per process.
    static bool registerBrandFont();

    /// Brand font as the application font; the window in front with the keyboard.
    void applicationDidFinishLaunching(QWindow* window);
    /// Takes the model weakly and, the first time, starts listening for the drop keys.
    void windowShown(AppModel& model);
    /// Stops the audio capture (closing a recording), then tells the cloud the bridge leaves,
    /// waiting at most 2 s. Runs once, and only while the model still exists.
    void applicationWillTerminate();

    DropKeyboardController* keyboard() const { return keyboard_.get(); }

private:
    QPointer<AppModel> model_;
    std::unique_ptr<DropKeyboardController> keyboard_;
    bool terminated_ = false;
};

} // namespace kelvo

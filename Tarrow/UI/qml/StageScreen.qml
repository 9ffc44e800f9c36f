import QtQuick
Rectangle { objectName: "stageScreen"; color: Theme.window }

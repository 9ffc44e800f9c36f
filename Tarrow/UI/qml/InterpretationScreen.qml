import QtQuick
Rectangle { objectName: "interpretationScreen"; color: Theme.window }

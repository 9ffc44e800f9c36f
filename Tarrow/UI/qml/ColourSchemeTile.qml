import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Kelvo.Model

Tile {
    id: tile
    objectName: "colourSchemeTile"
    title: "Colour scheme"

    ColumnLayout {
        anchors.fill: parent
        spacing: Theme.spacing

        RowLayout {
            spacing: Theme.spacing
            Label {
                text: "Live"
                color: Theme.textDim
                font.pixelSize: Theme.fontSmall
            }
            PaletteSwatches {
                objectName: "liveScheme"
                colors: Bridge.liveScheme
                chip: 30
            }
        }

        Label {
            visible: Bridge.themes.length === 0
            text: "No colour schemes yet"
            color: Theme.textDim
        }

        ListView {
            objectName: "themeList"
            Layout.fillWidth: true
            Layout.fillHeight: true
            clip: true
            spacing: 4
            model: Bridge.themes
            delegate: ItemDelegate {
                required property var modelData
                objectName: "theme_" + modelData.name
                width: ListView.view.width
                highlighted: Bridge.selectedThemeName === modelData.name
                onClicked: Bridge.selectTheme(modelData.name)
                contentItem: RowLayout {
                    spacing: Theme.spacing
                    Label {
                        Layout.fillWidth: true
                        text: modelData.name
                        color: Theme.text
                        font.pixelSize: Theme.fontBody
                        font.weight: highlighted ? Font.Bold : Font.Normal
                        elide: Text.ElideRight
                    }
                    PaletteSwatches {
                        colors: modelData.palette
                    }
                }
            }
        }
    }
}

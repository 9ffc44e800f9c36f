import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Kelvo.Model

Popup {
    id: panel
    objectName: "dropDiagnosticsPanel"
    modal: true
    focus: true
    visible: Bridge.showingDropDiagnostics
    onClosed: Bridge.showingDropDiagnostics = false
    anchors.centerIn: Overlay.overlay
    width: Math.min(640, parent ? parent.width - 40 : 640)
    padding: Theme.padding * 1.5

    // Read only while shown: closed, its rows would be rebuilt at the visuals' rate for nobody.
    readonly property var d: visible ? Bridge.dropDiagnostics : ({})
    function seconds(value) { return (value === undefined ? 0 : value).toFixed(1) + " s"; }

    background: Rectangle {
        color: Theme.tile
        border.color: Theme.tileBorder
        radius: Theme.radius
    }

    contentItem: ColumnLayout {
        spacing: Theme.spacing
        Accessible.role: Accessible.Dialog
        Accessible.name: Texts.dropDiagnosticsAccessibleName

        RowLayout {
            Layout.fillWidth: true
            Label {
                Layout.fillWidth: true
                text: Texts.dropDiagnosticsTitle
                color: Theme.text
                font.pixelSize: Theme.fontLarge
                font.weight: Font.Bold
            }
            Button {
                objectName: "closeDropDiagnostics"
                text: "Done"
                onClicked: panel.close()
            }
        }

        Label {
            objectName: "dropRuleExplanation"
            Layout.fillWidth: true
            text: Texts.dropRuleExplanation
            color: Theme.textDim
            wrapMode: Text.Wrap
        }

        GridLayout {
            columns: 4
            columnSpacing: Theme.spacing * 2
            rowSpacing: 6
            Repeater {
                model: [
                    ["Status", panel.d.status],
                    ["Architecture", panel.d.architecture],
                    ["Sample rate", Math.round(panel.d.sampleRate || 0) + " Hz"],
                    ["Audio", panel.seconds(panel.d.audioSeconds)],
                    ["Processing", panel.seconds(panel.d.processingSeconds)],
                    ["Delay", panel.seconds(panel.d.delaySeconds)],
                    ["Max delay", panel.seconds(panel.d.maxDelaySeconds)],
                    ["Backlog", panel.seconds(panel.d.backlogSeconds)],
                    ["Discarded blocks", String(panel.d.discardedBlocks || 0)],
                    ["Drops", String(panel.d.eventCount || 0)]
                ]
                delegate: RowLayout {
                    required property var modelData
                    Layout.columnSpan: 2
                    spacing: Theme.spacing
                    Label { text: modelData[0]; color: Theme.textDim; Layout.preferredWidth: 130 }
                    Label { text: modelData[1] || ""; color: Theme.text; font.weight: Font.DemiBold }
                }
            }
        }

        Label {
            objectName: "dropDiagnosticsError"
            visible: !!panel.d.error
            text: panel.d.error || ""
            color: Theme.danger
            wrapMode: Text.Wrap
            Layout.fillWidth: true
        }

        Label {
            text: Texts.recentAutomaticDrops
            color: Theme.text
            font.pixelSize: Theme.fontTitle
            font.weight: Font.DemiBold
        }
        Label {
            objectName: "noDropsDetectedYet"
            visible: !panel.d.recentEvents || panel.d.recentEvents.length === 0
            text: Texts.noDropsDetectedYet
            color: Theme.textDim
        }
        Repeater {
            model: panel.d.recentEvents || []
            Label {
                required property var modelData
                text: modelData
                color: Theme.text
            }
        }
    }
}

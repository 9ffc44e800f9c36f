import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Kelvo.Model

Tile {
    id: tile
    objectName: "lightingModeTile"
    title: "Lighting mode"

    // The modes grouped by category, each group in the server's order.
    readonly property var groups: {
        const byCategory = {};
        const order = [];
        for (const mode of Bridge.lightingModes) {
            if (!(mode.category in byCategory)) {
                byCategory[mode.category] = [];
                order.push(mode.category);
            }
            byCategory[mode.category].push(mode);
        }
        return order.map(c => ({
            category: c,
            modes: byCategory[c].sort((a, b) => a.orderIndex - b.orderIndex)
        }));
    }
    function categoryTitle(category) {
        if (category === "general")
            return "General";
        if (category === "show")
            return "This show";
        return category.charAt(0).toUpperCase() + category.slice(1);
    }
    readonly property string blendTarget: Bridge.selectedModeTo ? Bridge.selectedModeTo : ""

    ColumnLayout {
        anchors.fill: parent
        spacing: Theme.spacing

        Label {
            visible: Bridge.lightingModes.length === 0
            text: "No lighting modes yet"
            color: Theme.textDim
        }

        ScrollView {
            Layout.fillWidth: true
            Layout.fillHeight: true
            clip: true
            contentWidth: availableWidth

            ColumnLayout {
                width: parent.width
                spacing: Theme.spacing
                Repeater {
                    model: tile.groups
                    ColumnLayout {
                        required property var modelData
                        Layout.fillWidth: true
                        spacing: 6
                        Label {
                            text: tile.categoryTitle(modelData.category)
                            color: Theme.textDim
                            font.pixelSize: Theme.fontSmall
                        }
                        Flow {
                            Layout.fillWidth: true
                            spacing: 8
                            Repeater {
                                model: modelData.modes
                                ChoiceButton {
                                    required property var modelData
                                    objectName: "mode_" + modelData.id
                                    text: modelData.label
                                    chosen: Bridge.selectedModeId === modelData.id
                                    onClicked: Bridge.selectLightingMode(modelData.id)
                                }
                            }
                        }
                    }
                }
            }
        }

        GridLayout {
            Layout.fillWidth: true
            visible: Bridge.lightingModes.length > 0
            columns: 3
            columnSpacing: Theme.spacing
            Label {
                text: "Blend to"
                color: Theme.textDim
            }
            ComboBox {
                id: blendPicker
                objectName: "blendTarget"
                Layout.columnSpan: 2
                Layout.fillWidth: true
                model: [{ id: "", label: "None" }].concat(
                           Bridge.lightingModes.filter(m => m.id !== Bridge.selectedModeId))
                textRole: "label"
                valueRole: "id"
                // A Binding, not a plain binding: a pick by hand must not cut the model's
                // later changes off.
                Binding on currentIndex {
                    value: Math.max(0, blendPicker.indexOfValue(tile.blendTarget))
                }
                onActivated: Bridge.selectLightingBlend(Bridge.selectedModeId, currentValue,
                                                        currentValue === "" ? 0 : blendAmount.value)
            }
            Label {
                text: "Amount"
                color: Theme.textDim
            }
            Slider {
                id: blendAmount
                objectName: "blendAmount"
                Layout.fillWidth: true
                enabled: tile.blendTarget !== ""
                from: 0; to: 1
                Binding on value {
                    value: Bridge.selectedModeLerp
                    when: !blendAmount.pressed
                }
                onMoved: Bridge.selectLightingBlend(Bridge.selectedModeId, tile.blendTarget, value)
            }
            Label {
                objectName: "blendAmountText"
                text: Math.round(Bridge.selectedModeLerp * 100) + " %"
                color: Theme.text
                horizontalAlignment: Text.AlignRight
                Layout.preferredWidth: 56
            }
        }
    }
}

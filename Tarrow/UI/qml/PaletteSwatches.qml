import QtQuick

// A row of colour chips; colours are {r, g, b} in 0…1.
// The chips are kept while their number stays: a live scheme changes colours, not chips.
Row {
    id: row
    property var colors: []
    property int chip: 22
    spacing: 4
    Repeater {
        model: row.colors.length
        Rectangle {
            required property int index
            readonly property var c: row.colors[index] || {r: 0, g: 0, b: 0}
            width: chip; height: chip; radius: 4
            color: Qt.rgba(Math.max(0, Math.min(1, c.r)), Math.max(0, Math.min(1, c.g)),
                           Math.max(0, Math.min(1, c.b)), 1)
            border.color: "#40ffffff"
        }
    }
}

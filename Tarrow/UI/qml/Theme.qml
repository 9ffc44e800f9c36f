pragma Singleton
import QtQuick

// Colours and sizes of the dashboard, chosen to be read from two metres in a dark venue.
QtObject {
    readonly property string fontFamily: "Inter"

    readonly property color window: "#111418"
    readonly property color tile: "#1b2027"
    readonly property color tileBorder: "#2a313b"
    readonly property color sidebar: "#0b0d10"
    readonly property color text: "#eef1f5"
    readonly property color textDim: "#9aa4b2"
    readonly property color accent: "#4da3ff"
    readonly property color good: "#3ccf7a"
    readonly property color warning: "#f5b83d"
    readonly property color danger: "#ff5a5f"
    readonly property color low: "#ff6b4a"
    readonly property color mid: "#ffd24a"
    readonly property color high: "#4ad9ff"
    readonly property color beat: "#ffffff"
    readonly property color drop: "#ff3d7f"

    readonly property int fontSmall: 14
    readonly property int fontBody: 17
    readonly property int fontTitle: 20
    readonly property int fontLarge: 32
    readonly property int fontHuge: 56

    readonly property int spacing: 12
    readonly property int padding: 16
    readonly property int radius: 10
    readonly property int sidebarWidth: 200
}

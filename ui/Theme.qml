pragma Singleton
import QtQuick

// The colours and type sizes every Tessary window uses. Follows the desktop's palette,
// so light and dark schemes both work; the accent stays purple with indigo as its
// hover and gradient partner.
QtObject {
    id: theme

    readonly property SystemPalette palette: SystemPalette {
        colorGroup: SystemPalette.Active
    }

    readonly property bool dark: palette.window.hslLightness < 0.5

    readonly property color background: palette.window
    readonly property color window: palette.window
    // The header sits on a slightly lifted, slightly see-through surface.
    readonly property color headerMaterial: dark ? Qt.rgba(1, 1, 1, 0.04) : Qt.rgba(1, 1, 1, 0.55)
    readonly property color primary: palette.windowText
    readonly property color secondary: withAlpha(palette.windowText, dark ? 0.62 : 0.58)
    // A faint fill for wells, chips and plain buttons, used at an opacity on top.
    readonly property color quaternary: withAlpha(palette.windowText, dark ? 0.16 : 0.11)
    readonly property color separator: withAlpha(palette.windowText, dark ? 0.16 : 0.12)

    readonly property color purple: dark ? "#bf5af2" : "#a34ad6"
    readonly property color indigo: dark ? "#6a68ee" : "#5856d6"
    readonly property color green: dark ? "#30d158" : "#28a745"
    readonly property color red: dark ? "#ff453a" : "#e5372c"
    readonly property color white: "#ffffff"

    readonly property string fontFamily: Qt.application.font.family

    // A see-through colour as it shows on the window's background, as one opaque colour.
    // Qt Quick's software renderer fills opaque areas directly, while a see-through fill
    // of a tall area goes through Qt's thread pool, which costs more than it saves on a
    // busy machine: wells and edges that are redrawn while text streams use this.
    function onBackground(c) {
        return Qt.tint(background, c);
    }

    function withAlpha(c, a) {
        return Qt.rgba(c.r, c.g, c.b, a);
    }
}

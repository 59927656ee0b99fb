import QtQuick
import Tessary.Ui
import Tessary.Popup

// The popup's window: frameless, above other windows, a fixed 360 × 500.
Window {
    id: window

    required property PopupViewModel viewModel
    property bool started: false

    width: 360
    height: 500
    minimumWidth: width
    maximumWidth: width
    minimumHeight: height
    maximumHeight: height
    flags: Qt.Tool | Qt.FramelessWindowHint | Qt.WindowStaysOnTopHint
    title: qsTr("Tessary")
    color: Theme.background

    // The first rewrite starts when the popup comes on screen, and only for a text.
    onVisibleChanged: {
        if (visible && !started) {
            started = true;
            if (viewModel.originalText.length > 0)
                viewModel.run();
        }
    }

    PopupView {
        id: view
        anchors.fill: parent
        focus: true
        viewModel: window.viewModel
        onCloseRequested: window.close()
        onMoveRequested: window.startSystemMove()
    }

    // A hairline edge: without a compositor's shadow the popup would melt into a
    // window of the same colour behind it.
    Rectangle {
        anchors.fill: parent
        color: "transparent"
        border.width: 1
        border.color: Theme.onBackground(Theme.dark ? Qt.rgba(1, 1, 1, 0.14) : Qt.rgba(0, 0, 0, 0.22))
    }

    Connections {
        target: window.viewModel
        function onCloseRequested() {
            window.close();
        }
    }
}

import QtQuick
import Tessary.Ui
import Tessary.Popup

// The popup's window: frameless, above other windows, fixed at the view's own size.
// Its rewrite starts when its controller shows it.
Window {
    id: window

    required property PopupViewModel viewModel

    width: view.implicitWidth
    height: view.implicitHeight
    minimumWidth: width
    maximumWidth: width
    minimumHeight: height
    maximumHeight: height
    flags: Qt.Tool | Qt.FramelessWindowHint | Qt.WindowStaysOnTopHint
    title: qsTr("Tessary")
    color: Theme.background

    // The keyboard starts on the chosen tone each time the popup comes on screen.
    onVisibleChanged: if (visible) view.focusTone()

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

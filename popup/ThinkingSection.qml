import QtQuick
import QtQuick.Controls.Basic
import Tessary.Ui
import Tessary.Popup

// What a reasoning model thinks before it answers: "Thinking…" with the seconds so far
// while it thinks, and its thinking in a collapsed, read-only section. Never the result.
Column {
    id: section

    required property PopupViewModel viewModel
    property bool expanded: false
    property int seconds: 0

    visible: viewModel.thinking || viewModel.reasoningText.length > 0
    spacing: 4

    Connections {
        target: section.viewModel
        function onReasoningChanged() {
            if (section.viewModel.thinking && !clock.running) {
                section.seconds = 0
                clock.start()
            }
        }
    }
    Timer {
        id: clock
        interval: 1000
        repeat: true
        running: false
        onTriggered: section.viewModel.thinking ? ++section.seconds : stop()
    }

    AbstractButton {
        id: toggle
        objectName: "thinkingToggle"
        width: section.width
        hoverEnabled: true
        focusPolicy: Qt.TabFocus
        text: section.viewModel.thinking ? qsTr("Thinking… %1 s").arg(section.seconds)
                                         : qsTr("Thought for %1 s").arg(section.seconds)
        Accessible.role: Accessible.Button
        Accessible.name: text + (section.expanded ? qsTr(", hide the thinking") : qsTr(", show the thinking"))
        Accessible.onPressAction: clicked()
        onClicked: section.expanded = !section.expanded

        contentItem: Text {
            text: (section.expanded ? "▾ " : "▸ ") + toggle.text
            font.family: Theme.fontFamily
            font.pixelSize: 11
            color: toggle.hovered ? Theme.primary : Theme.secondary
        }
    }

    ScrollView {
        objectName: "thinkingText"
        visible: section.expanded
        width: section.width
        height: Math.min(120, thinking.implicitHeight)

        TextArea {
            id: thinking
            readOnly: true
            selectByMouse: true
            wrapMode: TextEdit.Wrap
            text: section.viewModel.reasoningText
            font.family: Theme.fontFamily
            font.pixelSize: 11
            font.italic: true
            color: Theme.secondary
            background: null
            Accessible.role: Accessible.StaticText
            Accessible.name: qsTr("The model's thinking")
            Accessible.readOnly: true
        }
    }
}

import QtQuick
import QtQuick.Layouts
import Tessary.Ui
import Tessary.Popup

// The rewrite with what it changed marked: added words underlined, dropped words struck
// through, so the marks read without their colours too; above it, how many words changed.
Item {
    id: diffText
    required property string original
    property string result
    // Or the result of this popup, followed as it streams.
    property PopupViewModel viewModel: null
    property bool partial: false
    property real padding: 0
    // Compared while on; by default while it is shown.
    property bool active: visible
    readonly property string summary: marks.summary
    readonly property bool current: marks.current
    // No marks: the text is too long to compare.
    readonly property bool tooLong: marks.tooLong

    implicitHeight: column.implicitHeight + 2 * padding

    DiffMarks {
        id: marks
        original: diffText.original
        result: diffText.result
        viewModel: diffText.viewModel
        partial: diffText.partial
        active: diffText.active
        insertedColor: Theme.green
        deletedColor: Theme.red
    }

    ColumnLayout {
        id: column
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.top: parent.top
        anchors.margins: diffText.padding
        spacing: 6

        Text {
            objectName: "diffSummary"
            Layout.fillWidth: true
            text: marks.summary
            font.family: Theme.fontFamily
            font.pixelSize: 11
            color: Theme.secondary
            Accessible.role: Accessible.StaticText
            Accessible.name: text
        }
        Text {
            objectName: "diffText"
            Layout.fillWidth: true
            text: marks.markup
            textFormat: Text.StyledText
            wrapMode: Text.Wrap
            font.family: Theme.fontFamily
            font.pixelSize: 13
            lineHeight: 1.2
            color: Theme.primary
            Accessible.role: Accessible.StaticText
            Accessible.name: qsTr("Stylized text with changes marked")
            Accessible.description: marks.summary
        }
    }
}

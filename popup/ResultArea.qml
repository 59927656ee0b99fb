import QtQuick
import Tessary.Ui
import Tessary.Popup

// The well under "Stylized": a spinner while the service reads the style, the result as
// it streams in, or the error.
Rectangle {
    id: resultArea

    required property PopupViewModel viewModel
    // The rewrite with its differences from the original marked, instead of plain.
    property bool showChanges: false
    readonly property int viewState: viewModel.state
    readonly property Item resultLayer: viewState === PopupViewModel.Error
                                        || viewState === PopupViewModel.Notice ? errorLayer
                                      : viewState === PopupViewModel.Loading ? loadingLayer
                                      : showChanges && !changesLayer.tooLong ? changesLayer : resultPages

    implicitHeight: Math.max(120, resultLayer.implicitHeight)
    radius: 10
    color: Theme.onBackground(Theme.withAlpha(Theme.quaternary, Theme.quaternary.a * 0.3))
    border.width: 1
    border.color: Theme.onBackground(Theme.withAlpha(Theme.purple, 0.2))

    Column {
        id: loadingLayer
        objectName: "loadingLayer"
        visible: resultArea.resultLayer === this
        anchors.centerIn: parent
        width: parent.width
        padding: 20
        spacing: 10

        Spinner {
            anchors.horizontalCenter: parent.horizontalCenter
            running: loadingLayer.visible
        }
        Text {
            width: parent.width - 40
            text: qsTr("Reading your style…")
            font.family: Theme.fontFamily
            font.pixelSize: 11
            color: Theme.secondary
            horizontalAlignment: Text.AlignHCenter
            Accessible.role: Accessible.StaticText
            Accessible.name: text
        }
    }

    ErrorLayer {
        id: errorLayer
        objectName: "errorLayer"
        visible: resultArea.resultLayer === this
        anchors.centerIn: parent
        width: parent.width
        viewModel: resultArea.viewModel
    }

    // The result, in as many pages as it is long (see StreamedText); with Show changes on,
    // a text too long to mark, under a line that says so.
    Column {
        id: resultPages
        objectName: "resultPages"
        visible: resultArea.resultLayer === this
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.top: parent.top
        padding: 12

        NoteLine {
            objectName: "tooLongToMark"
            width: parent.width - parent.leftPadding - parent.rightPadding
            bottomPadding: 6
            text: resultArea.showChanges ? changesLayer.summary : ""
        }
    }
    Component {
        id: resultPage

        TextEdit {
            objectName: "resultText"
            // A page after the first: the text goes on from the one above.
            property bool continued: false

            width: parent ? parent.width - parent.leftPadding - parent.rightPadding : 0
            readOnly: true
            selectByMouse: true
            persistentSelection: true
            textFormat: TextEdit.PlainText
            wrapMode: TextEdit.Wrap
            font.family: Theme.fontFamily
            font.pixelSize: 13
            color: Theme.primary
            selectionColor: Theme.withAlpha(Theme.purple, 0.35)
            selectedTextColor: Theme.primary
            Accessible.role: Accessible.EditableText
            Accessible.name: continued ? qsTr("Stylized text, continued") : qsTr("Stylized text")
            Accessible.readOnly: true
            // With the keyboard here, the text takes Ctrl+Enter before the window's shortcut
            // can: hand it on.
            Keys.onPressed: event => {
                const enter = event.key === Qt.Key_Return || event.key === Qt.Key_Enter;
                if (enter && (event.modifiers & Qt.ControlModifier)) {
                    event.accepted = true;
                    if (resultArea.viewModel.canReplace)
                        resultArea.viewModel.replace();
                }
            }
        }
    }
    DiffText {
        id: changesLayer
        objectName: "changesLayer"
        visible: resultArea.resultLayer === this
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.top: parent.top
        padding: 12
        active: resultArea.showChanges
        original: resultArea.viewModel.originalText
        viewModel: resultArea.viewModel
        partial: resultArea.viewModel.busy
    }
    StreamedText {
        objectName: "resultFeed"
        container: resultPages
        page: resultPage
        viewModel: resultArea.viewModel
        lineSpacing: 3
    }
}

pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Layouts
import QtQml.Models
import Tessary.Ui
import Tessary.Popup

// The three actions on the result: Retry, Copy (which says "Copied!" for a while) and
// Replace, side by side, or one above the other when their labels do not fit in a row.
GridLayout {
    id: footer

    required property PopupViewModel viewModel
    property bool copied: false
    property int copiedFor: 1800 // ms that Copy reads "Copied!" after a click

    function handleCopy() {
        viewModel.copy();
        copied = true;
        copyResets.append({});
    }

    columns: retryButton.implicitWidth + copyButton.implicitWidth + replaceButton.implicitWidth + 2 * columnSpacing
             <= width ? 3 : 1
    columnSpacing: 8
    // Side by side, the three faces are as wide as one another.
    readonly property real share: columns === 3 ? (width - 2 * columnSpacing) / 3 : width
    rowSpacing: 6

    // Every click gets its own reset, so the first of quick clicks ends it.
    ListModel {
        id: copyResets
    }
    Instantiator {
        model: copyResets
        delegate: Timer {
            interval: footer.copiedFor
            running: true
            onTriggered: {
                footer.copied = false;
                copyResets.remove(0); // the oldest reset is always the one due
            }
        }
    }

    FooterButton {
        id: retryButton
        objectName: "retryButton"
        Layout.fillWidth: true
        Layout.preferredWidth: footer.share
        Layout.minimumWidth: implicitWidth
        text: qsTr("↺ Retry")
        Accessible.name: qsTr("Retry") // a screen reader reads words, not the glyph
        enabled: footer.viewModel.canRetry
        onClicked: footer.viewModel.run()
    }
    FooterButton {
        id: copyButton
        objectName: "copyButton"
        Layout.fillWidth: true
        Layout.preferredWidth: footer.share
        Layout.minimumWidth: implicitWidth
        text: footer.copied ? qsTr("Copied!") : qsTr("Copy")
        enabled: footer.viewModel.canCopy
        checkmark: footer.copied
        faceColor: hovered && enabled ? Theme.indigo : Theme.purple
        faceOpacity: 1
        labelColor: Theme.white
        labelSize: 13
        labelWeight: Font.DemiBold
        onClicked: footer.handleCopy()
    }
    FooterButton {
        id: replaceButton
        objectName: "replaceButton"
        Layout.fillWidth: true
        Layout.preferredWidth: footer.share
        Layout.minimumWidth: implicitWidth
        // For a terminal the model says "Copy": there the rewrite goes to the clipboard.
        readonly property string label: footer.viewModel.replaceLabel ?? qsTr("Replace")
        text: "↵ " + label
        Accessible.name: label
        enabled: footer.viewModel.canReplace
        onClicked: footer.viewModel.replace()
    }
}

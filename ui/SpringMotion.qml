import QtQuick
import "Spring.js" as Spring

// A NumberAnimation that moves like a spring of the given response (seconds) and
// damping fraction.
NumberAnimation {
    property real response: 0.5
    property real dampingFraction: 1

    duration: Spring.duration(response, dampingFraction)
    easing.type: Spring.easingType(dampingFraction)
    easing.overshoot: Spring.overshoot(dampingFraction)
}

#pragma once

// What the end-to-end roads through a real editor share: the text, the user's clipboard
// before it, and Tessary's settings.
#include <QByteArray>
#include <QString>

namespace EditorRoad {

inline const QString paragraph = QStringLiteral("Keep this. Please rewrite this sentence now. Keep that.");
inline const QString sentence = QStringLiteral("Please rewrite this sentence now.");
// A 1×1 PNG: the user's clipboard holds an image, which must be there again after Replace.
inline const QByteArray image = QByteArray::fromBase64(
    "iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAYAAAAfFcSJAAAADUlEQVR42mP8z8DwHwAFBQIAX8jx0gAAAABJRU5ErkJggg==");

// Tessary's settings for a road: a key for the stand-in service and one sample.
inline const QByteArray settings = "[General]\napi_key=e2e-key\nhumanize_examples=Hi all.\n";

} // namespace EditorRoad

// libFuzzer harness for the event-stream reader that both programs use on a model
// server's reply. Besides crashes it checks that the reader tells the same lines and
// events however the network cuts the bytes, and that its line bound holds.

#include "EventStreamReader.h"

#include <QList>

#include <cstdint>
#include <cstdlib>

namespace {

void require(bool condition)
{
    if (!condition)
        std::abort();
}

constexpr qsizetype maxLine = 256;

struct Recorder : EventStreamReader::Listener
{
    QList<QByteArray> said;

    void line(QByteArrayView line) override
    {
        require(line.size() <= maxLine);
        said.append("L" + line.toByteArray());
    }
    bool data(QByteArrayView data) override
    {
        said.append("D" + data.toByteArray());
        // What a JSON-reading listener answers, near enough: an object is complete.
        return data.startsWith('{') && data.endsWith('}');
    }
};

QList<QByteArray> read(QByteArrayView bytes, const QList<qsizetype> &cuts)
{
    Recorder recorder;
    EventStreamReader reader(recorder, maxLine);
    qsizetype at = 0;
    for (const qsizetype cut : cuts) {
        reader.feed(bytes.sliced(at, cut - at));
        at = cut;
    }
    reader.feed(bytes.sliced(at));
    reader.finish();
    require(reader.plainBody().size() <= EventStreamReader::maxPlainBodyLength);
    recorder.said.append(QByteArray::number(int(reader.error())) + reader.plainBody().toByteArray());
    return recorder.said;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    // The first byte chooses where the rest is cut: once, or byte by byte.
    const QByteArrayView bytes(reinterpret_cast<const char *>(data) + 1, qsizetype(size) - 1);
    const QList<QByteArray> whole = read(bytes, {});
    const qsizetype cut = bytes.isEmpty() ? 0 : data[0] % (bytes.size() + 1);
    require(read(bytes, { cut }) == whole);
    if (data[0] & 1 && bytes.size() <= 512) {
        QList<qsizetype> everyByte;
        for (qsizetype i = 1; i < bytes.size(); ++i)
            everyByte.append(i);
        require(read(bytes, everyByte) == whole);
    }
    return 0;
}

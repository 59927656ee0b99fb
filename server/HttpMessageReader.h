#pragma once

#include <boost/beast/http/basic_parser.hpp>
#include <boost/beast/http/error.hpp>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

// An HTTP message parser that keeps only what tessary-server reads of a message: the
// request line or status, a few named fields, and the body, handed on as it arrives.
// Any other field is counted and dropped, so a peer sending thousands of them costs
// nothing but the count, which is itself bounded.
template<bool isRequest> class HttpMessageReader : public boost::beast::http::basic_parser<isRequest>
{
public:
    using error_code = boost::beast::error_code;
    using string_view = boost::beast::string_view;
    // Returns false to stop reading: the body is not wanted any more.
    using BodyHandler = std::function<bool(std::string_view)>;

    explicit HttpMessageReader(int maxFields)
        : m_maxFields(maxFields)
    {
    }

    std::string_view method() const { return m_method; }
    std::string_view target() const { return m_target; }
    int version() const { return m_version; } // 10 or 11
    int status() const { return m_status; }
    const std::string &authorization() const { return m_authorization; }
    bool expectsContinue() const { return m_expectContinue; }

    void onBody(BodyHandler handler) { m_onBody = std::move(handler); }
    // Bounds the body as it comes over the wire: chunk sizes, extensions and trailers
    // count with the data, so framing alone cannot make a body endless.
    void wireBodyLimit(std::uint64_t limit) { m_wireLimit = limit; }

private:
    void on_request_impl(
        boost::beast::http::verb, string_view method, string_view target, int version, error_code &) override
    {
        m_method.assign(method.data(), method.size());
        m_target.assign(target.data(), target.size());
        m_version = version;
    }
    void on_response_impl(int code, string_view, int, error_code &) override { m_status = code; }
    void on_field_impl(
        boost::beast::http::field name, string_view nameText, string_view value, error_code &ec) override
    {
        if (++m_fields > m_maxFields) {
            ec = boost::beast::http::error::header_limit;
            return;
        }
        if (m_headerDone) { // a trailer
            countWire(nameText.size() + value.size() + 4, ec);
            return;
        }
        // Taken as sent: a token must match byte for byte, never after any decoding.
        if (name == boost::beast::http::field::authorization)
            m_authorization.assign(value.data(), value.size());
        else if (name == boost::beast::http::field::expect)
            m_expectContinue = boost::beast::iequals(value, "100-continue");
    }
    void on_header_impl(error_code &) override { m_headerDone = true; }
    void on_body_init_impl(const boost::optional<std::uint64_t> &, error_code &) override { }
    std::size_t on_body_impl(string_view body, error_code &ec) override
    {
        if (!countWire(body.size(), ec))
            return 0;
        if (m_onBody && !m_onBody(std::string_view(body.data(), body.size())))
            ec = boost::beast::http::error::end_of_stream;
        return body.size();
    }
    void on_chunk_header_impl(std::uint64_t size, string_view extensions, error_code &ec) override
    {
        std::uint64_t digits = 1;
        while (size >>= 4)
            ++digits;
        countWire(digits + extensions.size() + 4, ec); // two line ends per chunk
    }
    bool countWire(std::uint64_t bytes, error_code &ec)
    {
        m_wireBytes += bytes;
        if (m_wireBytes <= m_wireLimit)
            return true;
        ec = boost::beast::http::error::body_limit;
        return false;
    }
    std::size_t on_chunk_body_impl(std::uint64_t, string_view body, error_code &ec) override
    {
        return on_body_impl(body, ec);
    }
    void on_finish_impl(error_code &) override { }

    int m_maxFields;
    int m_fields = 0;
    std::string m_method;
    std::string m_target;
    int m_version = 11;
    int m_status = 0;
    std::string m_authorization;
    bool m_expectContinue = false;
    bool m_headerDone = false;
    std::uint64_t m_wireBytes = 0;
    std::uint64_t m_wireLimit = UINT64_MAX;
    BodyHandler m_onBody;
};

#include "platform/dnssd/engine/message_codec.h"

#include <array>
#include <concepts>
#include <cstring>
#include <string>
#include <type_traits>
#include <utility>

namespace quillbox::dnssd {

namespace {

template <class T>
concept IsStruct = std::is_aggregate_v<T>;

/// Initializes any field of a message.
struct AnyValue {
    template <class T> operator T() const;
};

/// The number of the fields of a message: of the values that can initialize it.
template <IsStruct T, class... Values> consteval std::size_t countFields()
{
    if constexpr (requires { T{Values()..., AnyValue()}; })
        return countFields<T, Values..., AnyValue>();
    else
        return sizeof...(Values);
}

/// Calls `visit` with each field of a message, or of a part of one, in their order.
void forEachField(IsStruct auto& message, auto visit)
{
    const auto visitAll = [&visit](auto&... fields) { (visit(fields), ...); };
    constexpr auto kCount = countFields<std::remove_cvref_t<decltype(message)>>();
    if constexpr (kCount == 1) {
        auto& [a] = message;
        visitAll(a);
    } else if constexpr (kCount == 2) {
        auto& [a, b] = message;
        visitAll(a, b);
    } else if constexpr (kCount == 3) {
        auto& [a, b, c] = message;
        visitAll(a, b, c);
    } else if constexpr (kCount == 4) {
        auto& [a, b, c, d] = message;
        visitAll(a, b, c, d);
    } else if constexpr (kCount == 8) {
        auto& [a, b, c, d, e, f, g, h] = message;
        visitAll(a, b, c, d, e, f, g, h);
    } else {
        static_assert(kCount == 0, "add a case");
    }
}

template <class T>
concept IsNumber = std::integral<T> && !std::same_as<T, bool>;

class Writer {
public:
    void put(IsNumber auto number) { putBytes(&number, sizeof number); }
    void put(const IsStruct auto& message)
    {
        forEachField(message, [this](const auto& field) { this->put(field); });
    }

    Packet take() { return isFitting ? std::move(packet) : Packet(); }

private:
    void putBytes(const void* bytes, std::size_t length)
    {
        if (packet.size() + length > kMaximumPacketLength) {
            isFitting = false;
            return;
        }
        const auto* first = static_cast<const std::uint8_t*>(bytes);
        packet.insert(packet.end(), first, first + length);
    }

    /// Cut off only if that many bytes or elements do not fit into a packet anyway.
    void putLength(std::size_t length) { put(static_cast<std::uint16_t>(length)); }

    template <class E>
    requires(std::is_enum_v<E> || std::same_as<E, bool>) void put(E value)
    {
        put(static_cast<std::uint8_t>(value));
    }

    void put(const std::error_code& error)
    {
        put(error.category() == dnsSdCategory() ? static_cast<DnsSdError>(error.value())
                                                : DnsSdError::Internal);
    }

    void put(const std::string& text)
    {
        putLength(text.size());
        putBytes(text.data(), text.size());
    }

    void put(const std::array<std::uint8_t, 16>& bytes) { putBytes(bytes.data(), bytes.size()); }

    template <class T> void put(const std::vector<T>& list)
    {
        putLength(list.size());
        for (const T& element : list)
            put(element);
    }

    Packet packet;
    bool isFitting = true;
};

class Reader {
public:
    explicit Reader(std::span<const std::uint8_t> packet) : rest(packet) {}

    void get(IsNumber auto& number) { getBytes(&number, sizeof number); }
    void get(IsStruct auto& message)
    {
        forEachField(message, [this](auto& field) { this->get(field); });
    }

    bool isDone() const { return isGood && rest.empty(); }

private:
    void getBytes(void* bytes, std::size_t length)
    {
        if (!isGood || rest.size() < length) {
            isGood = false;
            return;
        }
        if (length > 0)
            std::memcpy(bytes, rest.data(), length);
        rest = rest.subspan(length);
    }

    template <class E> void getEnumeration(E& value, E first, E last)
    {
        std::uint8_t number = 0;
        get(number);
        if (number < static_cast<unsigned>(first) || number > static_cast<unsigned>(last))
            isGood = false;
        else
            value = static_cast<E>(number);
    }

    void get(bool& flag) { getEnumeration(flag, false, true); }
    void get(Change& change) { getEnumeration(change, Change::Found, Change::Lost); }
    void get(Family& family) { getEnumeration(family, Family::IPv4, Family::IPv6); }
    void get(Collision::Of& of) { getEnumeration(of, Collision::Of::Service, Collision::Of::Host); }
    void get(DnsSdError& error)
    {
        getEnumeration(error, DnsSdError::EngineUnavailable, DnsSdError::Internal);
    }

    void get(std::error_code& error)
    {
        DnsSdError value = DnsSdError::Internal;
        get(value);
        error = value;
    }

    void get(std::string& text)
    {
        std::uint16_t length = 0;
        get(length);
        if (!isGood || rest.size() < length) {
            isGood = false;
            return;
        }
        text.assign(rest.begin(), rest.begin() + length);
        rest = rest.subspan(length);
    }

    void get(std::array<std::uint8_t, 16>& bytes) { getBytes(bytes.data(), bytes.size()); }

    /// Every element takes at least one byte, so a count that is too large fails soon.
    template <class T> void get(std::vector<T>& list)
    {
        std::uint16_t count = 0;
        get(count);
        for (std::uint16_t index = 0; isGood && index < count; ++index)
            get(list.emplace_back());
    }

    std::span<const std::uint8_t> rest;
    bool isGood = true;
};

template <class Variant> Packet encodeVariant(Generation generation, const Variant& message)
{
    Writer writer;
    writer.put(static_cast<std::uint8_t>(message.index()));
    writer.put(generation);
    std::visit([&writer](const auto& m) { writer.put(m); }, message);
    return writer.take();
}

template <class Variant, std::size_t... Indices>
Variant makeAlternative(std::size_t index, std::index_sequence<Indices...> /*all*/)
{
    static const std::array<Variant, sizeof...(Indices)> all{
        Variant(std::in_place_index<Indices>)...};
    return all[index];
}

template <class Variant>
std::optional<Message<Variant>> decodeVariant(std::span<const std::uint8_t> packet)
{
    constexpr std::size_t kKinds = std::variant_size_v<Variant>;
    if (packet.empty() || packet.size() > kMaximumPacketLength || packet.front() >= kKinds)
        return std::nullopt;
    Message<Variant> message{
        0, makeAlternative<Variant>(packet.front(), std::make_index_sequence<kKinds>())};
    Reader reader(packet.subspan(1));
    reader.get(message.generation);
    std::visit([&reader](auto& m) { reader.get(m); }, message.content);
    if (!reader.isDone())
        return std::nullopt;
    return message;
}

} // namespace

Packet encode(Generation generation, const Request& request)
{
    return encodeVariant(generation, request);
}

Packet encode(Generation generation, const Event& event)
{
    return encodeVariant(generation, event);
}

std::optional<Message<Request>> decodeRequest(std::span<const std::uint8_t> packet)
{
    return decodeVariant<Request>(packet);
}

std::optional<Message<Event>> decodeEvent(std::span<const std::uint8_t> packet)
{
    return decodeVariant<Event>(packet);
}

} // namespace quillbox::dnssd

#include "platform/dnssd/engine/message_codec.h"

#include <array>
#include <concepts>
#include <cstring>
#include <limits>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>

namespace quillbox::dnssd {

namespace {

/// The fields of each message and of its parts, in the order in which they are sent.
template <class T> constexpr auto kFields = std::tuple();

template <>
constexpr auto kFields<Sighting> = std::tuple(&Sighting::interfaceIndex, &Sighting::carrier);
template <> constexpr auto kFields<Address> = std::tuple(&Address::family, &Address::bytes);
template <>
constexpr auto kFields<HostAddress> = std::tuple(&HostAddress::interfaceIndex,
                                                 &HostAddress::address);
template <>
constexpr auto kFields<HostEndpoint> = std::tuple(&HostEndpoint::host, &HostEndpoint::port);
template <>
constexpr auto kFields<ServiceEndpoint> = std::tuple(&ServiceEndpoint::name, &ServiceEndpoint::type,
                                                     &ServiceEndpoint::domain);

template <>
constexpr auto kFields<BrowseRequest> = std::tuple(&BrowseRequest::id, &BrowseRequest::type);
template <>
constexpr auto kFields<LocationRequest> = std::tuple(&LocationRequest::id,
                                                     &LocationRequest::service);
template <>
constexpr auto kFields<AddressRequest> = std::tuple(&AddressRequest::id, &AddressRequest::hostName,
                                                    &AddressRequest::family);
template <>
constexpr auto kFields<RegisterRequest> = std::tuple(&RegisterRequest::id, &RegisterRequest::name,
                                                     &RegisterRequest::type, &RegisterRequest::port,
                                                     &RegisterRequest::hostName,
                                                     &RegisterRequest::addresses,
                                                     &RegisterRequest::interfaceIndex,
                                                     &RegisterRequest::isOwnName);
template <>
constexpr auto kFields<UpdateAddressesRequest> = std::tuple(&UpdateAddressesRequest::id,
                                                            &UpdateAddressesRequest::addresses);
template <> constexpr auto kFields<StopRequest> = std::tuple(&StopRequest::id);

template <> constexpr auto kFields<EngineUp> = std::tuple(&EngineUp::hostName);
template <> constexpr auto kFields<EngineDown> = std::tuple(&EngineDown::error);
template <class Value>
constexpr auto kFields<Answer<Value>> = std::tuple(&Answer<Value>::id, &Answer<Value>::change,
                                                   &Answer<Value>::sighting, &Answer<Value>::value);
template <> constexpr auto kFields<Settled> = std::tuple(&Settled::id);
template <> constexpr auto kFields<Registered> = std::tuple(&Registered::id);
template <> constexpr auto kFields<Collision> = std::tuple(&Collision::id, &Collision::of);
template <> constexpr auto kFields<Failed> = std::tuple(&Failed::id, &Failed::error);

template <class T>
concept IsStruct = std::is_aggregate_v<T>;

/// Calls `visit` with each field of a message.
void forEachField(IsStruct auto& message, auto visit)
{
    using Message = std::remove_const_t<std::remove_reference_t<decltype(message)>>;
    static_assert(std::is_empty_v<Message> == (std::tuple_size_v<decltype(kFields<Message>)> == 0));
    std::apply([&](auto... field) { (visit(message.*field), ...); }, kFields<Message>);
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

    Packet take()
    {
        if (!isFitting || packet.size() > kMaximumPacketLength)
            return {};
        return std::move(packet);
    }

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

    void putLength(std::size_t length)
    {
        if (length > std::numeric_limits<std::uint16_t>::max())
            isFitting = false;
        put(static_cast<std::uint16_t>(length));
    }

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

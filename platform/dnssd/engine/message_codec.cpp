#include "platform/dnssd/engine/message_codec.h"

#include <concepts>
#include <cstring>
#include <limits>
#include <string>
#include <type_traits>
#include <utility>

namespace quillbox::dnssd {

namespace {

template <class M, class T>
concept Is = std::same_as<std::remove_const_t<M>, T>;

template <class M>
concept IsSeen = Is<M, ServiceFound> || Is<M, ServiceLost>;
template <class M>
concept IsLocated = Is<M, LocationFound> || Is<M, LocationLost>;
template <class M>
concept IsAddressed = Is<M, AddressFound> || Is<M, AddressLost>;
template <class M>
concept IsBare = Is<M, StopRequest> || Is<M, Settled> || Is<M, Registered>;

// Lists the fields of each message once, for both the writer and the reader.

void walk(auto& v, Is<BrowseRequest> auto& m)
{
    v(m.id, m.type);
}
void walk(auto& v, Is<LocationRequest> auto& m)
{
    v(m.id, m.name, m.type, m.domain);
}
void walk(auto& v, Is<AddressRequest> auto& m)
{
    v(m.id, m.hostName, m.family);
}
void walk(auto& v, Is<RegisterRequest> auto& m)
{
    v(m.id, m.name, m.type, m.port, m.hostName, m.addresses, m.interfaceIndex, m.isOwnName);
}
void walk(auto& v, Is<UpdateAddressesRequest> auto& m)
{
    v(m.id, m.addresses);
}
void walk(auto& v, IsBare auto& m)
{
    v(m.id);
}
void walk(auto& /*v*/, Is<Alive> auto& /*m*/) {}
void walk(auto& v, Is<EngineUp> auto& m)
{
    v(m.hostName);
}
void walk(auto& v, Is<EngineDown> auto& m)
{
    v(m.error);
}
void walk(auto& v, IsSeen auto& m)
{
    v(m.id, m.sighting, m.name, m.type, m.domain);
}
void walk(auto& v, IsLocated auto& m)
{
    v(m.id, m.sighting, m.hostName, m.port);
}
void walk(auto& v, IsAddressed auto& m)
{
    v(m.id, m.sighting, m.address);
}
void walk(auto& v, Is<Collision> auto& m)
{
    v(m.id, m.of);
}
void walk(auto& v, Is<Failed> auto& m)
{
    v(m.id, m.error);
}
void walk(auto& v, Is<Sighting> auto& m)
{
    v(m.interfaceIndex, m.carrier);
}
void walk(auto& v, Is<HostAddress> auto& m)
{
    v(m.interfaceIndex, m.address);
}

template <class T>
concept IsNumber = std::integral<T> && !std::same_as<T, bool>;

class Writer {
public:
    void operator()(const auto&... fields) { (put(fields), ...); }

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
        if (length == 0)
            return;
        const std::size_t end = packet.size();
        packet.resize(end + length);
        std::memcpy(packet.data() + end, bytes, length);
    }

    void putLength(std::size_t length)
    {
        if (length > std::numeric_limits<std::uint16_t>::max())
            isFitting = false;
        put(static_cast<std::uint16_t>(length));
    }

    void put(IsNumber auto number) { putBytes(&number, sizeof number); }
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

    void put(const Address& address)
    {
        put(address.family);
        putBytes(address.bytes.data(), address.bytes.size());
    }

    template <class T> void put(const std::vector<T>& list)
    {
        putLength(list.size());
        for (const T& element : list)
            put(element);
    }

    void put(const Sighting& sighting) { walk(*this, sighting); }
    void put(const HostAddress& address) { walk(*this, address); }

    Packet packet;
    bool isFitting = true;
};

class Reader {
public:
    explicit Reader(std::span<const std::uint8_t> packet) : rest(packet) {}

    void operator()(auto&... fields) { (get(fields), ...); }

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

    void get(IsNumber auto& number) { getBytes(&number, sizeof number); }

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

    void get(Address& address)
    {
        get(address.family);
        getBytes(address.bytes.data(), address.bytes.size());
    }

    /// Every element takes at least one byte, so a count that is too large fails soon.
    template <class T> void get(std::vector<T>& list)
    {
        std::uint16_t count = 0;
        get(count);
        for (std::uint16_t index = 0; isGood && index < count; ++index)
            get(list.emplace_back());
    }

    void get(Sighting& sighting) { walk(*this, sighting); }
    void get(HostAddress& address) { walk(*this, address); }

    std::span<const std::uint8_t> rest;
    bool isGood = true;
};

template <class Variant> Packet encodeVariant(Generation generation, const Variant& message)
{
    Writer writer;
    writer(static_cast<std::uint8_t>(message.index()), generation);
    std::visit([&writer](const auto& m) { walk(writer, m); }, message);
    return writer.take();
}

template <class Variant, std::size_t... Indices>
Variant makeAlternative(std::size_t index, std::index_sequence<Indices...> /*all*/)
{
    Variant message;
    (static_cast<void>(index == Indices ? static_cast<void>(message.template emplace<Indices>())
                                        : void()),
     ...);
    return message;
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
    reader(message.generation);
    std::visit([&reader](auto& m) { walk(reader, m); }, message.content);
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

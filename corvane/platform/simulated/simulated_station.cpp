#include "corvane/platform/simulated/simulated_station.h"

#include "corvane/framework/text_decoding.h"
#include "corvane/platform/simulated/simulated_link.h"
#include "corvane/platform/simulated/simulated_peripheral.h"

namespace corvane::simulated {

using Kind = RadioFault::Kind;

namespace {

/// What is no text becomes the character that stands for that.
std::string validUtf8(std::string_view text) {
    constexpr std::string_view replacement = "\xEF\xBF\xBD";
    std::string out;
    while (!text.empty()) {
        const std::size_t length = utf8CharacterLength(text);
        out += length == 0 ? replacement : text.substr(0, length);
        text.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return out;
}

}  // namespace

Station::Station(Air& air, std::shared_ptr<PeripheralDevice> device, std::uint64_t number,
                 std::string identifier)
    : device(std::move(device)), number(number), identifier(std::move(identifier)), air_(air) {}

Station::~Station() = default;

std::optional<std::string> Station::advertisedName() const {
    const std::string name = device->name();
    return name.empty() ? std::nullopt : std::optional(validUtf8(name));
}

void Station::comeIntoReach() {
    if (inReach_) return;
    inReach_ = true;
    becomeReachable();
}

void Station::goOutOfReach() {
    inReach_ = false;
    air_.silence(*this);
    loseLink("the device is out of reach");
}

void Station::nameChanged() {
    if (advert != 0) air_.advertise(*this);
}

void Station::becomeReachable() {
    if (!isReachable() || link_) return;
    air_.advertise(*this);
    for (Peripheral* seeker : std::exchange(seekers_, {})) seek(*seeker);
}

void Station::seek(Peripheral& peripheral) {
    if (!isReachable()) return seekers_.push_back(&peripheral);
    air_.queue.at(air_.queue.now() + air_.airTime(), [this, weak = peripheral.weak_from_this()] {
        const auto seeker = weak.lock();
        if (!seeker || !seeker->isSought()) return;
        if (isReachable()) {
            join(*seeker);
        } else {
            seekers_.push_back(seeker.get());
        }
    });
}

void Station::join(Peripheral& peripheral) {
    const bool first = !link_;
    if (first) link_ = std::make_shared<Link>(air_, *this);
    link_->members.push_back({&peripheral, {}});
    peripheral.linkStands();
    if (!first) return;
    air_.silence(*this);
    const auto link = link_;
    device->connected(*link);
}

void Station::leave(Peripheral& peripheral) {
    seekers_.erase(std::remove(seekers_.begin(), seekers_.end(), &peripheral), seekers_.end());
    if (!link_ || !link_->find(peripheral)) return;
    auto& members = link_->members;
    members.erase(members.begin() + (link_->find(peripheral) - members.data()));
    if (members.empty()) endLink();
}

void Station::loseLink(std::string_view why) {
    if (!link_) return;
    const auto members = std::exchange(link_->members, {});
    endLink();
    for (const Link::Member& member : members) member.peripheral->linkEnded(why);
}

void Station::endLink() {
    ending_ = true;
    link_->close();
    air_.queue.post([this, link = std::exchange(link_, nullptr)] {
        device->disconnected();
        ending_ = false;
        becomeReachable();
    });
}

void Station::request(Peripheral& from, std::function<void(Station&, Peripheral&)> action) {
    ++air_.operations;
    auto arrive = [this, weak = from.weak_from_this(), link = std::weak_ptr(link_),
                   action = std::move(action)] {
        const auto peripheral = weak.lock();
        const auto asked = link.lock();
        if (peripheral && asked && asked->find(*peripheral) && !asleep_) action(*this, *peripheral);
    };
    if (air_.faults.has(Kind::earlyValue)) return arrive();
    lastRequest_ = std::max(lastRequest_, air_.queue.now() + air_.airTime());
    air_.queue.at(lastRequest_, std::move(arrive));
}

void Station::subscribe(Peripheral& peripheral, const CBUUID& characteristic, bool enabled) {
    if (!offers(characteristic, gatt::notify | gatt::indicate)) return;
    const auto link = link_;
    auto& subscriptions = link->find(peripheral)->subscriptions;
    subscriptions.erase(std::remove(subscriptions.begin(), subscriptions.end(), characteristic),
                        subscriptions.end());
    if (enabled) subscriptions.push_back(characteristic);
    const auto tellDevice = [&] { device->subscribed(characteristic, enabled); };
    if (air_.faults.has(Kind::earlyValue)) {
        link->hurry(tellDevice);
    } else {
        tellDevice();
    }
}

void Station::write(const CBUUID& characteristic, Bytes value, CBCharacteristicWriteType type) {
    const bool answered = type == CBCharacteristicWriteType::withResponse;
    if (!offers(characteristic, answered ? gatt::write : gatt::writeWithoutResponse)) return;
    const auto link = link_;
    device->written(characteristic, value, type);
}

bool Station::offers(const CBUUID& characteristic, unsigned properties) const {
    for (const GattService& service : device->services()) {
        for (const GattCharacteristic& offered : service.characteristics) {
            if (offered.uuid == characteristic && (offered.properties & properties) != 0) return true;
        }
    }
    return false;
}

void Station::eventDelivered() {
    ++eventsDelivered_;
    if (eventsDelivered_ == air_.faults.stepOf(Kind::linkLost, number)) loseLink("the link is lost");
    if (eventsDelivered_ == air_.faults.stepOf(Kind::asleep, number)) fallAsleep();
}

void Station::fallAsleep() {
    constexpr auto supervision = std::chrono::seconds(3);
    constexpr auto nap = std::chrono::seconds(10);
    asleep_ = true;
    air_.silence(*this);
    air_.queue.at(air_.queue.now() + supervision, [this] { loseLink("the device does not answer"); });
    air_.queue.at(air_.queue.now() + nap, [this] {
        asleep_ = false;
        becomeReachable();
    });
}

}  // namespace corvane::simulated

// power_cut: what a device may hold after the power went.
#pragma once

#include "fault_device.h"

#include <cstddef>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

/// Files by name.
using device_image = std::map<std::string, std::string>;

/// Builds images of a folder from what was recorded of its changes.
///
/// A device keeps what was written to a file before the last sync of that file, and the names that were made,
/// changed or deleted before the last sync of the folder. Of what came later it keeps, in any order, any
/// part: all, nothing, all but one, one alone, some; of that one also the sectors up to a point. Names change
/// in order, of which one may be left out.
class power_cut {
public:
  /// @param start the folder as the recording began
  /// @param numbers the number of each of its files
  power_cut(device_image const& start, std::map<std::string, int> const& numbers,
            std::vector<device_event> events);

  /// How many events there are; the power goes before one of them, or behind the last.
  std::size_t length() const noexcept { return events.size(); }
  /// Marks among the events before one.
  int marksBefore(std::size_t event) const;
  /// The folder when nothing is lost.
  device_image whole(std::size_t event);
  /// Calls for each of the images that are made in every case, when the power goes before an event. Images
  /// repeat.
  void each(std::size_t event, std::function<void(device_image const&)> const& use);
  /// Calls for images of random choices. None when no choice is left.
  void some(std::size_t event, int count, std::mt19937_64& random,
            std::function<void(device_image const&)> const& use);
  /// The events before which something is written or named that a device may lose, each as often as there are
  /// such things: who picks one by chance mostly gets one with many choices.
  std::vector<std::size_t> uncertain();

private:
  struct Piece {
    device_event const* event = nullptr;
    std::size_t kept = 0; // of its bytes; all of a truncation when more than 0
  };

  void goTo(std::size_t event);
  void advance(device_event const& event);
  static constexpr std::size_t none = static_cast<std::size_t>(-1);
  /// @param nameCount how many of the changes of names are kept
  /// @param lostName one of them that is not
  device_image build(std::vector<Piece> const& pieces, std::size_t nameCount,
                     std::size_t lostName = none) const;
  static void apply(std::map<int, std::string>& contents, Piece const& piece);
  static void rename(std::map<std::string, int>& names, device_event const& event);

  std::map<std::string, int> startNames;
  std::map<int, std::string> startContents;
  std::vector<device_event> events;

  std::size_t position = 0; // what follows holds before this event
  std::map<std::string, int> names;
  std::map<int, std::string> contents;
  std::vector<device_event const*> loose;      // writes and truncations that no sync followed
  std::vector<device_event const*> looseNames; // changes of names that no sync followed
};

// rfm_BaseClasses: which classes of a class list are derived from which.
#pragma once

#include "os_Export.h"

#include <cstddef>
#include <map>
#include <utility>
#include <vector>

/// Answers whether classes are derived from each other, also where a damaged file derives all of its classes
/// from each other, in a chain or in a circle: in such a circle each class is a base of all.
///
/// Made once of a class list, in time proportional to it; each answer costs the logarithm of it. Never
/// changes.
class DDR_API rfm_BaseClasses {
public:
  /// Knows no class.
  rfm_BaseClasses() = default;
  /// @param derivations type ids of classes and of their bases, each class once; base 1: none. Bases need not
  /// be among the classes.
  explicit rfm_BaseClasses(std::vector<std::pair<unsigned, unsigned>> const& derivations);

  /// Whether a class is another one or derived from it.
  bool IsA(unsigned typeId, unsigned wanted) const;
  /// The base that has none itself: the class when it is that; any of those in a circle that bases end in.
  unsigned Outermost(unsigned typeId) const;

private:
  static constexpr std::size_t none = static_cast<std::size_t>(-1);
  /// One class. Those that have no base, and those in a circle, stand at depth 0.
  struct Class {
    explicit Class(unsigned ofTypeId) noexcept : typeId(ofTypeId) {}

    unsigned typeId;
    std::size_t base = none;
    std::size_t outermost = none; ///< one for all classes of a circle; none as long as this is not resolved
    std::size_t shortcut = none;  ///< a class further out, so that the way to any is short
    std::size_t depth = 0;        ///< how many bases there are before the outermost
  };

  std::size_t Place(unsigned typeId);
  void Resolve(std::size_t place);
  void Resolve(Class& derived) const;
  std::size_t FirstAtDepth(std::size_t place, std::size_t depth) const;

  std::map<unsigned, std::size_t> places;
  std::vector<Class> classes;
};

// A slow, plain model of a query: every constraint on every record, no plan.
#pragma once

#include <functional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "records.h"

namespace qvr::test {

// A constraint as text and as what it means: of a save set, or of a clone's fragment on a volume.
struct model_constraint {
  std::string text;
  std::function<bool(const ss_t &)> ss;
  std::function<bool(const clone_t &, const frag_t &, const vol_t &)> frag;
};

struct model_catalogue {
  ss_list save_sets;
  vol_list volumes;

  const vol_t *volume_of(const frag_t &frag) const {
    for (const vol_t *vol : volumes.rows) {
      if (vol->volid == frag.volid) return vol;
    }
    return nullptr;
  }
};

// Some constraints whose values come from records of the catalogue, so that most queries find
// something. Each field is named once at most.
class query_maker {
 public:
  query_maker(const model_catalogue &catalogue, std::uint64_t seed)
      : catalogue_(catalogue), random_(seed) {}
  std::vector<model_constraint> make();
  std::uint64_t next(std::uint64_t below) { return random_() % below; }

 private:
  const model_catalogue &catalogue_;
  std::mt19937_64 random_;
};

// The long identifiers of the save sets that the constraints keep, sorted. Only those count that
// lie on a volume, since a walk over volumes finds no others, and, with `whole`, only those that
// are complete and have a client and a name.
std::vector<std::string> model_answer(const model_catalogue &catalogue,
                                      const std::vector<model_constraint> &constraints, bool whole);
// Whether the save set counts at all.
bool model_counts(const model_catalogue &catalogue, const ss_t &ss, bool whole);

}  // namespace qvr::test

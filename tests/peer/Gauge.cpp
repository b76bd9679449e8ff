#include "tests/peer/Gauge.h"

#include "Zet/TypeMap.h"

namespace Test {
namespace {

Zet::Ptr<Zet::Entity> gaugeFactory(Zet::Name const& name, Zet::Entity* parent) { return new Gauge(name, parent); }

Zet::TypeDescriptor const gaugeType{
    "Test::Gauge",
    gaugeFactory,
    {
        {0x102, "value", Zet::readAs<&Gauge::value>, Zet::writeAs<&Gauge::valueIs>},
        {0x103, "label", Zet::readAs<&Gauge::label>, Zet::writeAs<&Gauge::labelIs>},
    },
    {},
};

}  // namespace

ZET_DEFINE_TYPE(Gauge, gaugeType);

}  // namespace Test

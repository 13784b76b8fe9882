// The one OID mapper path the bench's agent cannot take: the reference host
// answers every member of a group separately, so only a transport failure after
// detection fails the whole group's request.
#include "engine/oid_data_mapper.h"

#include <gtest/gtest.h>

#include "norvane/disposable.h"
#include "support/ref.h"

namespace {

using namespace Norvane;

constexpr HRESULT kTimeout = static_cast<HRESULT>(0x800705B4);

class SilentAgent : public DisposableObject<OIDProvider> {
 public:
  HRESULT GetValue(const char16_t*, VARIANT*) override { return kTimeout; }
  HRESULT GetNextOidAndValue(const char16_t*, char16_t*, uint32_t, VARIANT*) override { return kTimeout; }
  HRESULT GetMultipleValues(const char16_t**, VARIANT*, uint32_t) override { return kTimeout; }
};

TEST(OidMapper, AGroupWhoseRequestFailsAnswersNothingAndStoresNothing) {
  auto* silent = new SilentAgent();
  silent->AddRef();
  auto agent = QxUtils::AdoptRef(silent);
  auto map = QxUtils::AdoptRef(DataMapSpec::CreateDataMapSpec(DataMapTypeOID));
  map->AddDataItemSpec(
      u"Black", OIDDataItemSpec::CreateOIDDataItemSpec(u"Black", u"1.3.1", u"levels", false, nullptr, 0, nullptr));
  auto mapper = QxUtils::AdoptRef(OIDDataMapper::Create(agent.get(), map.get()));
  Variant value = Variant::FromInt32(7);
  EXPECT_EQ(mapper->GetValue(u"Black", value.Ptr()), E_FAIL);
  EXPECT_EQ(value.Get().lVal, 7);
  EXPECT_TRUE(mapper->GetValueTable().empty());
}

}  // namespace

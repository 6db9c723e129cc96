#include "base/json_io.h"
#include "gvx_common/forms/record_forms.h"
#include "gvx_common/forms/request_table.h"
#include "support/sample_record.h"
#include "support/temp_folder.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

namespace {

// What a member does not take: values just outside, and of other types.
std::vector<Json::Value> WrongValues(const gvx::FieldForm& field) {
    std::vector<Json::Value> wrong{Json::Value(), Json::Value(Json::arrayValue)};
    switch (field.kind) {
        case gvx::FieldKind::Flag:
            wrong.insert(wrong.end(), {1, "true"});
            break;
        case gvx::FieldKind::Integer:
            wrong.insert(wrong.end(), {1.5, true, "no such name"});
            if (field.names == nullptr) {
                wrong.push_back(Json::Value(Json::Int64(field.least - 1)));
                wrong.push_back(field.store == gvx::NumberStore::UInt64 ? Json::Value(Json::Value::maxUInt64)
                                                                        : Json::Value(Json::Int64(field.most + 1)));
            } else {
                wrong.push_back(4711);
            }
            break;
        case gvx::FieldKind::Real:
            wrong.insert(wrong.end(), {"1", false});
            if (field.realMost < 1e9) {
                wrong.insert(wrong.end(), {field.realLeast - 1, field.realMost + 1});
            }
            break;
        case gvx::FieldKind::Text:
            wrong.insert(wrong.end(), {7, std::string(static_cast<std::size_t>(field.most) + 1, '1')});
            if (field.rule != gvx::TextRule::Any) {
                wrong.push_back(std::string(static_cast<std::size_t>(field.most), '\t'));
            }
            break;
        case gvx::FieldKind::Record:
            wrong.push_back("text");
            break;
        case gvx::FieldKind::Json:
            wrong.clear();
            break;
    }
    return wrong;
}

void ExpectRefused(const gvx::RecordForm& form, const Json::Value& object, const std::string& start) {
    std::string fault;
    EXPECT_FALSE(gvx::ReadRecord(form, object, nullptr, fault)) << form.name << " " << start << gvx::WriteJson(object);
    EXPECT_EQ(fault.find(start), 0u) << form.name << ": " << fault;
}

void CheckForm(const gvx::RecordForm& form, std::set<const gvx::RecordForm*>& seen) {
    if (!seen.insert(&form).second) {
        return;
    }
    const Json::Value good = SampleOf(form);
    std::string fault;
    EXPECT_TRUE(gvx::ReadRecord(form, good, nullptr, fault)) << form.name << ": " << fault;
    for (const gvx::FieldForm& field : form) {
        if (field.kind == gvx::FieldKind::Record) {
            CheckForm(field.record(), seen);
        }
        if (field.name == nullptr || field.answerOnly) {
            continue;
        }
        for (const Json::Value& value : WrongValues(field)) {
            Json::Value bad = good;
            if (field.list == nullptr) {
                bad[field.name] = value;
                ExpectRefused(form, bad, std::string(field.name) + " is ");
            } else {
                bad[field.name][1] = value;
                ExpectRefused(form, bad, std::string(field.name) + "[1] is ");
            }
        }
        if (field.required) {
            Json::Value bad = good;
            bad.removeMember(field.name);
            ExpectRefused(form, bad, std::string(field.name) + " is missing.");
        }
    }
}

}  // namespace

TEST(RecordFormTest, EveryMemberOfEveryRequestRefusesWhatItsFormForbids) {
    std::set<const gvx::RecordForm*> seen;
    std::set<std::uint16_t> numbers;
    for (const gvx::RequestRow& row : gvx::AllRequests()) {
        EXPECT_TRUE(numbers.insert(row.reqID).second) << row.name << " stands twice";
        CheckForm(row.request(), seen);
    }
    EXPECT_GT(seen.size(), 60u);
}

TEST(RecordFormTest, TheReferencePageIsThatOfTheTable) {
    std::ifstream file(SourceTree() / "docs/nss-requests.md");
    const std::string page((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    EXPECT_TRUE(page == gvx::RequestsPage()) << "write it anew: gvxctl requests --page > docs/nss-requests.md";
}

TEST(RecordFormTest, UnknownMembersAndWipedTexts) {
    Json::Value cruise = SampleOf(gvx::FormOf<MSG_PTZ_SET_CRUISE_TRACK_REQ>());
    EXPECT_EQ(gvx::UnknownMember(gvx::FormOf<MSG_PTZ_SET_CRUISE_TRACK_REQ>(), cruise), "");
    cruise["Points"][1]["Sped"] = 1;
    EXPECT_EQ(gvx::UnknownMember(gvx::FormOf<MSG_PTZ_SET_CRUISE_TRACK_REQ>(), cruise), "Points[1].Sped");
    PU_MOD_PASSWORD_STRU change;
    change.strNewPassword = "pass";
    gvx::WipeRecord(gvx::FormOf<PU_MOD_PASSWORD_STRU>(), &change);
    EXPECT_EQ(change.strNewPassword, std::string(4, '\0'));
}

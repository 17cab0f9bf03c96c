// MIB XML as smidump writes it, and rows, for the tests of the agent.
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <utility>

#include "host/agent/objects/mib_model.h"
#include "vrxpub/vrx_tlv_record.h"

namespace vrx {

// A file that is gone with the object.
class TemporaryFile {
public:
    explicit TemporaryFile(const std::string& text) {
        std::string pattern = (std::filesystem::temp_directory_path() / "agent-test-XXXXXX").string();
        const int descriptor = ::mkstemp(pattern.data());
        if (descriptor >= 0) ::close(descriptor);
        m_path = pattern;
        std::ofstream(m_path) << text;
    }
    ~TemporaryFile() { std::filesystem::remove(m_path); }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    const std::string& path() const { return m_path; }

private:
    std::string m_path;
};

// A table 1.3.6.1.4.1.99871.2.7.1 with columns 1 (text), 2 (Unsigned32), 3 (RowStatus), 4 (Counter64, not in every
// row), 9 (the index), and a writable scalar 1.3.6.1.4.1.99871.2.7.2.
inline std::string sampleMib() {
    return R"(<?xml version="1.0"?>
<!DOCTYPE smi SYSTEM "http://www.ibr.cs.tu-bs.de/projects/nmrg/smi.dtd">
<smi>
  <module name="SAMPLE-MIB" language="SMIv2"/>
  <typedefs>
    <typedef name="SampleText" basetype="OctetString" status="current"><range min="0" max="65535"/></typedef>
    <typedef name="SampleLevel" basetype="Enumeration" status="current">
      <namednumber name="low" number="1"/>
      <namednumber name="high" number="3"/>
    </typedef>
  </typedefs>
  <nodes>
    <node name="sample" oid="1.3.6.1.4.1.99871.2.7" status="current"/>
    <table name="sampleTable" oid="1.3.6.1.4.1.99871.2.7.1" status="current">
      <row name="sampleEntry" oid="1.3.6.1.4.1.99871.2.7.1.1" create="true" status="current">
        <linkage><index module="SAMPLE-MIB" name="sampleNumber"/></linkage>
        <column name="sampleNumber" oid="1.3.6.1.4.1.99871.2.7.1.1.9" status="current">
          <syntax><typedef basetype="Unsigned32"><range min="1" max="65535"/></typedef></syntax>
          <access>noaccess</access>
        </column>
        <column name="sampleName" oid="1.3.6.1.4.1.99871.2.7.1.1.1" status="current">
          <syntax><typedef basetype="OctetString">
            <parent module="SAMPLE-MIB" name="SampleText"/><range min="1" max="8"/>
          </typedef></syntax>
          <access>readwrite</access>
        </column>
        <column name="sampleSize" oid="1.3.6.1.4.1.99871.2.7.1.1.2" status="current">
          <syntax><typedef basetype="Unsigned32">
            <range min="1" max="10"/><range min="20" max="30"/>
          </typedef></syntax>
          <access>readwrite</access>
        </column>
        <column name="sampleStatus" oid="1.3.6.1.4.1.99871.2.7.1.1.3" status="current">
          <syntax><type module="SNMPv2-TC" name="RowStatus"/></syntax>
          <access>readwrite</access>
        </column>
        <column name="sampleCount" oid="1.3.6.1.4.1.99871.2.7.1.1.4" status="current">
          <syntax><type module="SNMPv2-SMI" name="Counter64"/></syntax>
          <access>readonly</access>
        </column>
        <column name="sampleHeard" oid="1.3.6.1.4.1.99871.2.7.1.1.5" status="current">
          <syntax><type module="SAMPLE-MIB" name="SampleLevel"/></syntax>
          <access>notifyonly</access>
        </column>
      </row>
    </table>
    <scalar name="sampleScalar" oid="1.3.6.1.4.1.99871.2.7.2" status="current">
      <syntax><type module="" name="Unsigned32"/></syntax>
      <access>readwrite</access>
    </scalar>
  </nodes>
</smi>
)";
}

inline MibModel loadMib(const std::string& text) {
    const TemporaryFile file(text);
    return MibModel::load(file.path());
}

inline const OidVector SAMPLE_TABLE = {1, 3, 6, 1, 4, 1, 99871, 2, 7, 1};
inline const OidVector SAMPLE_SCALAR = {1, 3, 6, 1, 4, 1, 99871, 2, 7, 2};

// A row of cells: textCell(1, "a"), numberCell(2, 5)
inline std::unique_ptr<CTLVCell> textCell(unsigned short tag, const char* text) {
    auto cell = std::make_unique<CTLVCell>();
    cell->set(tag, text);
    return cell;
}

inline std::unique_ptr<CTLVCell> numberCell(unsigned short tag, unsigned long long number,
                                            CTLVCell::ETLVType type = CTLVCell::TLV_TYPE_UINT,
                                            unsigned long length = 8) {
    auto cell = std::make_unique<CTLVCell>();
    cell->set_i(type, tag, &number, length);
    return cell;
}

template <typename... Cells>
std::unique_ptr<CTLVRecordV3> makeRow(unsigned long long identifier, Cells... cells) {
    auto record = std::make_unique<CTLVRecordV3>(identifier, CTLVRecordV3::DEFAULT_BUCKETS);
    [[maybe_unused]] const auto append = [&record](std::unique_ptr<CTLVCell> cell) {
        record->append(cell.get());
        cell.release();
    };
    (append(std::move(cells)), ...);
    return record;
}

}  // namespace vrx

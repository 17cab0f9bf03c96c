// Time to encode and decode a backend's answer of 50 alarms, against protobuf with the same values and against a copy
// of the bytes. Build with CMAKE_BUILD_TYPE=RelWithDebInfo; compare times of one run only, medians of
// --benchmark_repetitions. Each program part checks once that what it makes holds every value.
#include <benchmark/benchmark.h>
#include <google/protobuf/arena.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "alarm/alarm_record.h"
#include "alarm_answer.pb.h"
#include "vrxpub/record_access.h"
#include "vrxpub/vrx_message_package.h"

namespace {

constexpr std::size_t ROWS = 50;
constexpr unsigned long long GET_CURRENT_ALARM = 2001;

struct tAlarm {
    unsigned int type = 1;
    unsigned long long id = 0;
    unsigned int level = 0;
    unsigned int serial = 0;
    unsigned long long raised = 0;
    unsigned long long ended = 0;
    unsigned long long secondEnd = 0;
    std::string parameters;

    bool operator==(const tAlarm& other) const {
        return type == other.type && id == other.id && level == other.level && serial == other.serial &&
               raised == other.raised && ended == other.ended && secondEnd == other.secondEnd &&
               parameters == other.parameters;
    }
};

// Active faults, as a backend lists them: both end times are unset.
const std::vector<tAlarm>& sampleAlarms() {
    static const std::vector<tAlarm> alarms = [] {
        const char* const parameters[] = {"7,CTE0,1", "CTE0.A,3", "CTE0.SMB1,2,0.75", "disk pool 2,12,80,GB",
                                          "host-initiator-0042,21:00:00:24:ff:4b:12:9c,CTE0.B.H3"};
        std::vector<tAlarm> made(ROWS);
        for (std::size_t i = 0; i < ROWS; ++i) {
            tAlarm& alarm = made[i];
            alarm.id = 0x100040001ULL + i * 3;
            alarm.level = static_cast<unsigned int>(3 + i % 4);
            alarm.serial = static_cast<unsigned int>(1200 + i);
            alarm.raised = 1750000000 + 137 * i;
            alarm.parameters = parameters[i % std::size(parameters)];
        }
        return made;
    }();
    return alarms;
}

void require(bool good, const char* what) {
    if (good) return;
    (void)std::fprintf(stderr, "codec_bench: %s\n", what);
    std::exit(1);
}

// The codec.

void fill(CR8KPackageV3& package) {
    for (const tAlarm& alarm : sampleAlarms()) {
        auto record = std::make_unique<CTLVRecordV3>(GET_CURRENT_ALARM, CTLVRecordV3::DEFAULT_BUCKETS);
        tlv::appendUint32(*record, alarm_tag::TYPE, alarm.type);
        tlv::appendUint64(*record, alarm_tag::ID, alarm.id);
        tlv::appendUint32(*record, alarm_tag::LEVEL, alarm.level);
        tlv::appendUint32(*record, alarm_tag::SERIAL, alarm.serial);
        tlv::appendUint64(*record, alarm_tag::RAISED, alarm.raised);
        tlv::appendUint64(*record, alarm_tag::ENDED, alarm.ended);
        tlv::appendUint64(*record, alarm_tag::SECOND_END, alarm.secondEnd);
        tlv::appendText(*record, alarm_tag::PARAMETERS, alarm.parameters);
        package.append(std::move(record));
    }
}

tAlarm alarmOf(const CTLVRecordV3& record) {
    tAlarm alarm;
    alarm.type = tlv::uint32Of(record, alarm_tag::TYPE);
    alarm.id = tlv::uint64Of(record, alarm_tag::ID);
    alarm.level = tlv::uint32Of(record, alarm_tag::LEVEL);
    alarm.serial = tlv::uint32Of(record, alarm_tag::SERIAL);
    alarm.raised = tlv::uint64Of(record, alarm_tag::RAISED);
    alarm.ended = tlv::uint64Of(record, alarm_tag::ENDED);
    alarm.secondEnd = tlv::uint64Of(record, alarm_tag::SECOND_END);
    alarm.parameters = tlv::textOf(record, alarm_tag::PARAMETERS);
    return alarm;
}

bool holdsTheSample(const CR8KPackageV3& package) {
    std::vector<tAlarm> alarms;
    for (const CTLVRecordV3* record : package.records()) {
        if (record->identifier() != GET_CURRENT_ALARM) return false;
        alarms.push_back(alarmOf(*record));
    }
    return package.head().uiHeadParam1 == 0 && package.head().uiHeadParam2 == 0xFFFFFFFF && alarms == sampleAlarms();
}

std::vector<unsigned char> encodedSample() {
    CR8KPackageV3 package;
    fill(package);
    unsigned char* bytes = nullptr;
    const unsigned int size = package.encode(bytes);
    const std::unique_ptr<unsigned char[]> owner(bytes);
    require(size != CR8KPackageV3::FAILURE, "encode failed");
    return {bytes, bytes + size};
}

// Received bytes to values that can be asked for, and their end.
void decode(benchmark::State& state) {
    std::vector<unsigned char> bytes = encodedSample();
    const auto size = static_cast<unsigned int>(bytes.size());
    for (auto _ : state) {
        CR8KPackageV3 package;
        benchmark::DoNotOptimize(package.decode(bytes.data(), size));
        benchmark::ClobberMemory();
    }
    CR8KPackageV3 package;
    require(package.decode(bytes.data(), size) == size - TLVMsgHeadV3::SIZE && holdsTheSample(package),
            "decode lost a value");
    state.counters["bytes"] = static_cast<double>(bytes.size());
}
BENCHMARK(decode);

// The same object for every package.
void decodeReused(benchmark::State& state) {
    std::vector<unsigned char> bytes = encodedSample();
    CR8KPackageV3 package;
    for (auto _ : state) {
        package.clear();
        benchmark::DoNotOptimize(package.decode(bytes.data(), static_cast<unsigned int>(bytes.size())));
        benchmark::ClobberMemory();
    }
    require(holdsTheSample(package), "decode into a used package lost a value");
}
BENCHMARK(decodeReused);

// Decode, then every value by its tag.
void decodeAndRead(benchmark::State& state) {
    std::vector<unsigned char> bytes = encodedSample();
    for (auto _ : state) {
        CR8KPackageV3 package;
        package.decode(bytes.data(), static_cast<unsigned int>(bytes.size()));
        for (const CTLVRecordV3* record : package.records()) benchmark::DoNotOptimize(alarmOf(*record));
    }
}
BENCHMARK(decodeAndRead);

// An existing package to a fresh buffer.
void encode(benchmark::State& state) {
    CR8KPackageV3 package;
    fill(package);
    unsigned int size = 0;
    for (auto _ : state) {
        unsigned char* bytes = nullptr;
        size = package.encode(bytes);
        benchmark::DoNotOptimize(bytes);
        benchmark::ClobberMemory();
        delete[] bytes;
    }
    require(size == encodedSample().size(), "encode lost bytes");
    state.counters["bytes"] = static_cast<double>(size);
}
BENCHMARK(encode);

void encodeReused(benchmark::State& state) {
    CR8KPackageV3 package;
    fill(package);
    std::vector<unsigned char> bytes(encodedSample().size());
    for (auto _ : state) {
        benchmark::DoNotOptimize(package.encode(bytes.data(), static_cast<unsigned int>(bytes.size())));
        benchmark::ClobberMemory();
    }
    require(bytes == encodedSample(), "encode into a used buffer lost a value");
}
BENCHMARK(encodeReused);

// A package made from values cell by cell, and its end.
void build(benchmark::State& state) {
    for (auto _ : state) {
        CR8KPackageV3 package;
        fill(package);
        benchmark::DoNotOptimize(package);
    }
    CR8KPackageV3 package;
    fill(package);
    require(holdsTheSample(package), "build lost a value");
}
BENCHMARK(build);

// Every value of every row by its tag.
void read(benchmark::State& state) {
    CR8KPackageV3 package;
    fill(package);
    for (auto _ : state) {
        for (const CTLVRecordV3* record : package.records()) benchmark::DoNotOptimize(alarmOf(*record));
    }
}
BENCHMARK(read);

// Protobuf.

void fill(alarm_answer::Answer& answer) {
    const TLVMsgHeadV3 head;
    answer.set_head_param1(head.uiHeadParam1);
    answer.set_head_param2(head.uiHeadParam2);
    answer.set_head_param3(head.usHeadParam1);
    answer.set_head_param4(head.usHeadParam2);
    answer.set_head_param5(head.usHeadParam3);
    answer.set_head_param6(head.usHeadParam4);
    for (const tAlarm& alarm : sampleAlarms()) {
        alarm_answer::Alarm& row = *answer.add_alarms();
        row.set_identifier(GET_CURRENT_ALARM);
        row.set_type(alarm.type);
        row.set_alarm_id(alarm.id);
        row.set_level(alarm.level);
        row.set_serial(alarm.serial);
        row.set_raised(alarm.raised);
        row.set_ended(alarm.ended);
        row.set_second_end(alarm.secondEnd);
        row.set_parameters(alarm.parameters);
    }
}

tAlarm alarmOf(const alarm_answer::Alarm& row) {
    tAlarm alarm;
    alarm.type = row.type();
    alarm.id = row.alarm_id();
    alarm.level = row.level();
    alarm.serial = row.serial();
    alarm.raised = row.raised();
    alarm.ended = row.ended();
    alarm.secondEnd = row.second_end();
    alarm.parameters = row.parameters();
    return alarm;
}

bool holdsTheSample(const alarm_answer::Answer& answer) {
    std::vector<tAlarm> alarms;
    for (const alarm_answer::Alarm& row : answer.alarms()) {
        if (row.identifier() != GET_CURRENT_ALARM) return false;
        alarms.push_back(alarmOf(row));
    }
    return answer.head_param1() == 0 && answer.head_param2() == 0xFFFFFFFF && alarms == sampleAlarms();
}

std::vector<unsigned char> serializedSample() {
    alarm_answer::Answer answer;
    fill(answer);
    std::vector<unsigned char> bytes(answer.ByteSizeLong());
    require(answer.SerializeToArray(bytes.data(), static_cast<int>(bytes.size())), "protobuf serialisation failed");
    return bytes;
}

void protobufParse(benchmark::State& state) {
    const std::vector<unsigned char> bytes = serializedSample();
    const auto size = static_cast<int>(bytes.size());
    for (auto _ : state) {
        alarm_answer::Answer answer;
        benchmark::DoNotOptimize(answer.ParseFromArray(bytes.data(), size));
        benchmark::ClobberMemory();
    }
    alarm_answer::Answer answer;
    require(answer.ParseFromArray(bytes.data(), size) && holdsTheSample(answer), "protobuf's parse lost a value");
    state.counters["bytes"] = static_cast<double>(bytes.size());
}
BENCHMARK(protobufParse);

void protobufParseReused(benchmark::State& state) {
    const std::vector<unsigned char> bytes = serializedSample();
    alarm_answer::Answer answer;
    for (auto _ : state) {
        benchmark::DoNotOptimize(answer.ParseFromArray(bytes.data(), static_cast<int>(bytes.size())));
        benchmark::ClobberMemory();
    }
    require(holdsTheSample(answer), "protobuf's parse into a used message lost a value");
}
BENCHMARK(protobufParseReused);

void protobufParseArena(benchmark::State& state) {
    const std::vector<unsigned char> bytes = serializedSample();
    for (auto _ : state) {
        google::protobuf::Arena arena;
        auto* const answer = google::protobuf::Arena::CreateMessage<alarm_answer::Answer>(&arena);
        benchmark::DoNotOptimize(answer->ParseFromArray(bytes.data(), static_cast<int>(bytes.size())));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(protobufParseArena);

void protobufParseAndRead(benchmark::State& state) {
    const std::vector<unsigned char> bytes = serializedSample();
    for (auto _ : state) {
        alarm_answer::Answer answer;
        answer.ParseFromArray(bytes.data(), static_cast<int>(bytes.size()));
        for (const alarm_answer::Alarm& row : answer.alarms()) benchmark::DoNotOptimize(alarmOf(row));
    }
}
BENCHMARK(protobufParseAndRead);

// The buffer is made as encode makes it: of the size that the message tells.
void protobufSerialize(benchmark::State& state) {
    alarm_answer::Answer answer;
    fill(answer);
    std::size_t size = 0;
    for (auto _ : state) {
        size = answer.ByteSizeLong();
        const std::unique_ptr<unsigned char[]> bytes(new unsigned char[size]);
        benchmark::DoNotOptimize(answer.SerializeWithCachedSizesToArray(bytes.get()));
        benchmark::ClobberMemory();
    }
    require(size == serializedSample().size(), "protobuf's serialisation lost bytes");
    state.counters["bytes"] = static_cast<double>(size);
}
BENCHMARK(protobufSerialize);

void protobufSerializeReused(benchmark::State& state) {
    alarm_answer::Answer answer;
    fill(answer);
    std::vector<unsigned char> bytes(serializedSample().size());
    for (auto _ : state) {
        benchmark::DoNotOptimize(answer.SerializeToArray(bytes.data(), static_cast<int>(bytes.size())));
        benchmark::ClobberMemory();
    }
    require(bytes == serializedSample(), "protobuf's serialisation into a used buffer lost a value");
}
BENCHMARK(protobufSerializeReused);

void protobufBuild(benchmark::State& state) {
    for (auto _ : state) {
        alarm_answer::Answer answer;
        fill(answer);
        benchmark::DoNotOptimize(answer);
    }
}
BENCHMARK(protobufBuild);

void protobufRead(benchmark::State& state) {
    alarm_answer::Answer answer;
    fill(answer);
    for (auto _ : state) {
        for (const alarm_answer::Alarm& row : answer.alarms()) benchmark::DoNotOptimize(alarmOf(row));
    }
}
BENCHMARK(protobufRead);

// The codec's bytes copied to a fresh buffer: less than this no codec can do.
void copyBytes(benchmark::State& state) {
    const std::vector<unsigned char> bytes = encodedSample();
    for (auto _ : state) {
        const std::unique_ptr<unsigned char[]> copy(new unsigned char[bytes.size()]);
        benchmark::DoNotOptimize(memcpy(copy.get(), bytes.data(), bytes.size()));
        benchmark::ClobberMemory();
    }
    state.counters["bytes"] = static_cast<double>(bytes.size());
}
BENCHMARK(copyBytes);

}  // namespace

BENCHMARK_MAIN();

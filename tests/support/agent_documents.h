#pragma once

#include <stdlib.h>

#include <string>
#include <vector>

#include "inputs/machine_reader.h"
#include "inputs/source_link.h"
#include "plant/events.h"

namespace kx::tool {

// Plant time is UTC here.
inline const bool kIsUtc = setenv("TZ", "UTC", 1) == 0;

// ---- An agent's documents ----

inline std::string ToldAt(int sequence, const std::string& moment, const std::string& element,
                          const std::string& id, const std::string& value,
                          const std::string& attributes = "") {
  return "<" + element + " dataItemId=\"" + id + "\" sequence=\"" + std::to_string(sequence) +
         "\" timestamp=\"" + moment + "\" " + attributes + ">" + value + "</" + element + ">";
}

inline std::string Told(int sequence, const std::string& time, const std::string& element,
                        const std::string& id, const std::string& value, const std::string& attributes = "") {
  return ToldAt(sequence, "2026-01-12T" + time + "Z", element, id, value, attributes);
}

inline std::string Component(const std::string& kind, const std::string& id, const std::string& events,
                             const std::string& conditions = "") {
  return "<ComponentStream component=\"" + kind + "\" componentId=\"" + id + "\"><Events>" + events +
         "</Events><Condition>" + conditions + "</Condition></ComponentStream>";
}

inline std::string Device(const std::string& name, const std::string& components) {
  return "<DeviceStream name=\"" + name + "\" uuid=\"uuid-" + name + "\">" + components + "</DeviceStream>";
}

inline std::string Document(int instance, int first, int next, const std::string& devices, int last = 0) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<m:Document xmlns:m=\"urn:m\"><m:Header "
         "creationTime=\"2026-01-12T12:00:00Z\" "
         "instanceId=\"" +
         std::to_string(instance) + "\" firstSequence=\"" + std::to_string(first) + "\" lastSequence=\"" +
         std::to_string(last) + "\" nextSequence=\"" + std::to_string(next) + "\"/><m:Streams>" + devices +
         "</m:Streams></m:Document>";
}

inline std::string PathDocument(int first, int next, const std::string& events) {
  return Document(7, first, next, Device("Lathe", Component("Path", "p1", events)));
}

inline std::string ErrorDocument(const std::string& code) {
  return "<Document><Header instanceId=\"7\"/><Errors><Error errorCode=\"" + code +
         "\">no such thing</Error></Errors></Document>";
}

// A machine's reader, and what it made of what it was given.
struct MachineOwner : LinkOwner {
  explicit MachineOwner(const char* mapping = "")
      : reader(Mapping::Parse(mapping), [this](auto, const std::string& text) { notices.push_back(text); }) {}
  void OnOpened() override {
    opening = true;
    if (!is_agent) reader.Open(Now());
  }
  void OnReceived(std::string_view text, Moment arrival) override {
    Take(is_agent ? reader.ReadDocument(text, arrival) : reader.Read(text, arrival));
  }
  void OnLost(const std::string& why) override { lost.push_back(why); }
  std::string NextRequest() override { return reader.NextRequest(); }

  void Take(const std::vector<Report>& reports) {
    for (const Report& report : reports) {
      for (const MachineEvent& event : reader.Apply(report)) {
        events += event.time.ToText().substr(11) + ' ' +
                  EventName(event.event.type_code, event.event.time_code, event.event.command_number) +
                  (event.param.empty() ? "\n" : " <" + event.param + ">\n");
      }
    }
  }
  // Reads a document that came at noon, and returns the events that it made.
  std::string Read(const std::string& document) {
    events.clear();
    Take(reader.ReadDocument(document, DateTimeMoment("2026-01-12T12:00:00")));
    return events;
  }
  static Moment DateTimeMoment(const char* text) {
    bool offset_given = false;
    return ParseMoment(text, offset_given).value();
  }

  bool is_agent = true;
  bool opening = false;
  std::vector<std::string> notices, lost;
  MachineReader reader;
  std::string events;
};

}  // namespace kx::tool

// The monitor as a provider of event tracing: {e92224c9-91e3-4045-80da-1fd03ff156c3}, each trace line an
// event that is its text. Who records, and from which level on, is decided by the sessions that the system's
// own tools start.
//
// Registered for the process by the module's attach; in a program that never registers nothing is recorded.
// No function of ours is given to the system, so nothing of the system's can come back into the module when
// it has been unloaded. Any thread may record; nothing here throws or allocates.
#pragma once

namespace vlm {

enum class TraceLevel : unsigned char;

// A failure leaves the process without the provider and has no other consequence.
void RegisterEventProvider();
void UnregisterEventProvider();

// Whether any session records events of that level.
bool IsEventRecorded(TraceLevel level);
void RecordEvent(TraceLevel level, const wchar_t* text);

}  // namespace vlm

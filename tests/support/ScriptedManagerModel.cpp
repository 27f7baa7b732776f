// The life of units and jobs, and who hears of it.
#include <support/ScriptedManagerModel.h>

#include <set>
#include <stdexcept>
#include <string_view>

#include <support/ScriptedManagerMessages.h>

namespace Sodrel::Test {

namespace {

bool isUp( const Unit& unit ) {
   return unit.activeState == "active" || unit.activeState == "reloading";
}

} // namespace

ScriptedManagerModel::ScriptedManagerModel( const std::vector< Unit >& loaded ) {
   for( const Unit& unit : loaded ) {
      units.emplace( unit.name, unit );
   }
}

void ScriptedManagerModel::detach() {
   subscribers.reset();
   bus = nullptr;
}

void ScriptedManagerModel::standard( sd_bus_message* call ) {
   if( sd_bus_message_get_interface( call ) != std::string_view( managerInterface ) ) {
      throw std::logic_error( "only the manager's methods have a standard behaviour" );
   }
   const std::string method = sd_bus_message_get_member( call );
   if( method == "Subscribe" ) {
      subscribe( call );
   } else if( method == "Unsubscribe" ) {
      unsubscribe( call );
   } else if( method == "Reload" ) {
      reload( call );
   } else if( method == "GetUnit" ) {
      getUnit( call );
   } else if( const auto job = queueJob( call ) ) {
      finishJob( *job, "" );
   }
}

void ScriptedManagerModel::subscribe( sd_bus_message* call ) {
   if( checked( sd_bus_track_add_sender( subscribers.get(), call ), "subscribe" ) == 0 ) {
      sendError(
         call, { "org.freedesktop.systemd1.AlreadySubscribed", "Client is already subscribed." } );
   } else {
      sendReply( call, { "" } );
   }
}

void ScriptedManagerModel::unsubscribe( sd_bus_message* call ) {
   if( checked( sd_bus_track_remove_sender( subscribers.get(), call ), "unsubscribe" ) == 0 ) {
      sendError( call, { "org.freedesktop.systemd1.NotSubscribed", "Client is not subscribed." } );
   } else {
      sendReply( call, { "" } );
   }
}

void ScriptedManagerModel::reload( sd_bus_message* call ) {
   if( subscribed() ) {
      emitSignal( bus, reloading( true ).words );
      emitSignal( bus, reloading( false ).words );
   }
   sendReply( call, { "" } );
}

void ScriptedManagerModel::getUnit( sd_bus_message* call ) {
   const char* name = nullptr;
   checked( sd_bus_message_read( call, "s", &name ), "GetUnit" );
   if( units.contains( name ) ) {
      sendReply( call, { "o", unitPath( name ) } );
   } else {
      sendError(
         call, { "org.freedesktop.systemd1.NoSuchUnit",
                 "Unit " + std::string( name ) + " not loaded." } );
   }
}

Job ScriptedManagerModel::planned( const std::string& method, const Unit& unit ) {
   const bool up = isUp( unit );
   if( method == "ReloadUnit" && !up ) {
      return { unit.name, "reload", {}, "invalid" };
   }
   if( method.starts_with( "Reload" ) && up && unit.canReload ) {
      return {
         unit.name, "reload", { "reloading", "active" }, unit.reloadFails ? "failed" : "done"
      };
   }
   const bool stops = up && method != "StartUnit";
   const bool onlyIfUp = method.find( "Try" ) != std::string::npos;
   const bool starts = method != "StopUnit" && ( up ? stops : !onlyIfUp );
   Job job{ unit.name, stops ? "restart" : "start", {}, "done" };
   if( stops ) {
      job.states = { "deactivating", "inactive" };
   }
   if( starts ) {
      job.states.insert( job.states.end(), unit.announcesStart ? 1 : 0, "activating" );
      job.states.emplace_back( unit.startFails ? "failed" : "active" );
      job.result = unit.startFails ? "failed" : "done";
   } else {
      job.type = stops ? "stop" : "nop";
   }
   return job;
}

std::optional< uint32_t > ScriptedManagerModel::queueJob( sd_bus_message* call ) {
   static const std::set< std::string > modes{
      "fail",
      "replace",
      "replace-irreversibly",
      "isolate",
      "ignore-dependencies",
      "ignore-requirements",
      "flush",
   };
   const std::string method = sd_bus_message_get_member( call );
   const char* name = nullptr;
   const char* mode = nullptr;
   checked( sd_bus_message_read( call, "ss", &name, &mode ), method.c_str() );
   const std::string unitName = name;
   const auto unit = units.find( unitName );
   if( unit == units.end() ) {
      const char* what = method == "StopUnit" ? " not loaded." : " not found.";
      sendError( call, { "org.freedesktop.systemd1.NoSuchUnit", "Unit " + unitName + what } );
   } else if( !modes.contains( mode ) ) {
      sendError(
         call, { SD_BUS_ERROR_INVALID_ARGS, "Job mode " + std::string( mode ) + " invalid" } );
   } else if( method == "ReloadUnit" && !unit->second.canReload ) {
      sendError(
         call, { "org.freedesktop.systemd1.JobTypeNotApplicable",
                 "Job type reload is not applicable for unit " + unitName + "." } );
   } else {
      jobs.emplace( ++lastJob, planned( method, unit->second ) );
      if( subscribed() ) {
         announce( unit->second );
      }
      const Body path = jobPath( lastJob );
      sendReply( call, { path.signature, path.values.front() } );
      return lastJob;
   }
   return std::nullopt;
}

void ScriptedManagerModel::finishJob( uint32_t id, const std::string& result ) {
   const Job job = jobs.at( id );
   jobs.erase( id );
   for( const std::string& state : job.states ) {
      Unit& unit = units.at( job.unit );
      unit.activeState = state;
      if( subscribed() ) {
         announce( unit );
      }
   }
   // Reaches at least the client that queued the job, whoever has subscribed.
   emitSignal( bus, jobRemoved( id, result.empty() ? job.result : result, job.unit ).words );
}

const Unit* ScriptedManagerModel::unitAt( const std::string& path ) const {
   for( const auto& [name, unit] : units ) {
      if( unitPath( name ) == path ) {
         return &unit;
      }
   }
   return nullptr;
}

const Job* ScriptedManagerModel::jobAt( const std::string& path ) const {
   for( const auto& [id, job] : jobs ) {
      if( jobPath( id ).values.front() == path ) {
         return &job;
      }
   }
   return nullptr;
}

void ScriptedManagerModel::changeState( const std::string& unitName, const std::string& state ) {
   Unit& unit = units.at( unitName );
   unit.activeState = state;
   announce( unit );
}

bool ScriptedManagerModel::subscribed() const {
   return bus != nullptr && sd_bus_track_count( subscribers.get() ) > 0;
}

// The interface of the unit's type comes first, then the one that all units have.
void ScriptedManagerModel::announce( const Unit& unit ) {
   emitSignal(
      bus, propertiesChanged(
              unit.name,
              body( "sa{sv}as", "org.freedesktop.systemd1.Service", 1, "MainPID", "u", 0, 0 ) )
              .words );
   emitSignal(
      bus, propertiesChanged(
              unit.name, body(
                            "sa{sv}as", unitInterface, 2, "ActiveState", "s", unit.activeState,
                            "StateChangeTimestamp", "t", 0, 1, "Conditions" ) )
              .words );
}

} // namespace Sodrel::Test

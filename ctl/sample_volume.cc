#include "ctl/sample_volume.h"

#include <algorithm>
#include <ostream>

#include "base/path.h"
#include "ctl/sample_schema.h"
#include "ctl/sample_writer.h"
#include "ctl/version_graph.h"
#include "file-op/file_op.h"
#include "logger/check.h"
#include "package/layout.h"
#include "updater/framework/suspended_logs.h"
#include "updater/framework/updater_framework.h"
#include "updater/legacy/layout.h"
#include "updater/server/registration.h"

namespace ctl {
namespace {

using updater::legacy::Database;

constexpr int kSampleVersion = updater::legacy::kLayoutVersion;
constexpr long long kFirstTime = 1400000000;

int MakeFolders(const package::VolumePaths& paths, MadeFolders& made, std::string& error) {
  for (const std::string& folder :
       {paths.live.sync_folder, paths.live.sync_folder + package::kFilesFolder,
        paths.live.sync_folder + package::kDeltasFolder, paths.live.sync_folder + package::kRemovalFolder,
        base::FolderOf(paths.live.client)}) {
    if (made.Make(folder, error) < 0) return -1;
  }
  return 0;
}

void WriteNodes(SampleWriter& writer, const SampleContent& content) {
  RowInserter nodes(writer, schema::kInsertNode);
  RowInserter tree(writer, schema::kInsertTree);
  for (int i = 0; i < content.size().nodes; ++i) {
    const SampleContent::Node node = content.NodeAt(i);
    // A version's sync id is its number; a node without one was changed after all of them.
    const long long sync_id = node.latest_version != 0 ? node.latest_version : content.size().versions + 1LL;
    nodes.Add(node.id, node.parent_id, node.view, node.attribute, sync_id, sync_id, node.version_count,
              kFirstTime + i, kFirstTime - i, node.name, node.path, node.data);
    int distance = 0;
    for (const long long ancestor : node.ancestors) tree.Add(node.id, ancestor, ++distance);
  }
}

// Returns the number of deltas written.
long long WriteVersions(SampleWriter& writer, const SampleContent& content) {
  RowInserter versions(writer, schema::kInsertVersion);
  RowInserter files(writer, schema::kInsertFile);
  RowInserter deltas(writer, schema::kInsertDelta);
  long long delta_count = 0;
  for (int i = 0; i < content.size().versions; ++i) {
    const SampleContent::FileVersion version = content.VersionAt(i);
    const SampleUser owner = UserOfView(version.view);
    versions.Add(version.id, version.node_id, version.attribute, version.id, version.previous, kFirstTime + i,
                 version.file_id, version.file_size, version.file_hash, kFirstTime - i, i % 3 == 0 ? 1 : 0,
                 owner.uid, owner.gid, i % 100, version.client_id, version.mac_attr);
    if (version.file_id == 0) continue;
    files.Add(version.file_id, 1, version.file_size, version.file_hash);
    if (version.previous != 0) deltas.Add(version.node_id, version.previous, version.id, ++delta_count);
  }
  return delta_count;
}

int WriteDataDatabase(const std::string& path, const SampleContent& content, std::string& error) {
  SampleWriter writer(path, CreateTables(Database::kData));
  {
    WriteNodes(writer, content);
    const long long deltas = WriteVersions(writer, content);
    RowInserter config(writer, schema::kInsertConfig);
    config.Add("version", std::to_string(kSampleVersion));
    config.Add("row1", "1");
    config.Add("serial", "it's a \"sample\", 100%");
    config.Add("sync_id", std::to_string(content.size().versions + 1));
    config.Add("file_id", std::to_string(content.size().versions + 1));
    config.Add("delta_file_id", std::to_string(deltas + 1));
    config.Add("rotate_cnt", "32");
    config.Add("rotate_span", "15552000");
  }
  // After the rows, which is several times faster than keeping them up to date row by row.
  writer.Run(CreateIndexes(Database::kData) + schema::kMoreDataIndexes);
  return writer.Finish(error);
}

int WriteUserDatabase(const std::string& path, const SampleContent& content, std::string& error) {
  SampleWriter writer(path, CreateTables(Database::kUser));
  {
    RowInserter users(writer, schema::kInsertUser);
    RowInserter sessions(writer, schema::kInsertSession);
    for (int view = 1; view <= content.size().views; ++view) {
      const SampleUser user = UserOfView(view);
      users.Add(user.attribute, view, user.name, user.uid, user.gid, user.type, user.watch_path);
      if (user.type != 1) {
        sessions.Add(view, user.name + "'s \"laptop\"", "192.0.2.7", kFirstTime + view,
                     "session " + std::to_string(view));
      }
    }
    RowInserter config(writer, schema::kInsertConfig);
    config.Add("version", std::to_string(kSampleVersion));
  }
  return writer.Finish(error);
}

// The client has seen every second node, and has a sync id of its own for all views but the last.
int WriteClientDatabase(const std::string& path, const SampleContent& content, std::string& error) {
  SampleWriter writer(path, CreateTables(Database::kClient));
  {
    RowInserter nodes(writer, schema::kInsertClientNode);
    for (int i = 0; i < content.size().nodes; i += 2) {
      const SampleContent::Node node = content.NodeAt(i);
      nodes.Add(node.id, node.parent_id, node.view, node.latest_version, kFirstTime - i, "", node.name,
                node.path);
    }
    RowInserter progress(writer, schema::kInsertProgress);
    for (int view = 1; view < content.size().views; ++view) progress.Add(view, content.size().versions);
    RowInserter config(writer, schema::kInsertConfig);
    config.Add("version", std::to_string(kSampleVersion));
    config.Add("sync_id", std::to_string(content.size().versions));
  }
  writer.Run(CreateIndexes(Database::kClient));
  return writer.Finish(error);
}

}  // namespace

std::vector<int> SampleVersions() {
  std::vector<int> versions = {kSampleVersion};
  for (const Edge& edge : AllEdges()) versions.push_back(edge.to.number);
  std::sort(versions.begin(), versions.end());
  versions.erase(std::unique(versions.begin(), versions.end()), versions.end());
  return versions;
}

int MakeSampleVolume(const std::string& volume, const SampleSize& size, MadeFolders& made,
                     std::string& error) {
  if (size.views < 1 || size.nodes < size.views || size.versions < 0) {
    error = "a sample needs at least one view and one node a view";
    return -1;
  }
  const package::VolumePaths paths(volume);
  if (file_op::FSExists(paths.live.sync_folder)) {
    error = paths.live.sync_folder + " exists already; a sample is made in a folder of its own";
    return -1;
  }
  const SampleContent content(size);
  return logger::ToResult(MakeFolders(paths, made, error) == 0 &&
                          WriteDataDatabase(paths.live.data, content, error) == 0 &&
                          WriteUserDatabase(paths.live.user, content, error) == 0 &&
                          WriteClientDatabase(paths.live.client, content, error) == 0);
}

int LiftSampleVolume(const std::string& volume, int version, const updater::UpdaterContext& context,
                     std::string& error) {
  const package::VolumePaths paths(volume);
  const updater::Version start = {"", kSampleVersion};
  updater::UpdaterFramework framework(context.out);
  updater::Version target = start;
  // The live databases instead of working copies: a sample that breaks is made again.
  for (auto& updater : updater::server::CreateServerUpdaters(context, paths.live)) {
    if (updater->GetToVersion().number == version) target = updater->GetToVersion();
    framework.AddUpdater(std::move(updater));
  }
  if (target.number != version) {
    error = "no updater leads to version " + std::to_string(version);
    return -1;
  }
  if (framework.Run(start, target) < 0) {
    error = framework.GetLastError();
    return -1;
  }
  if (updater::ResumeLogs(paths.live)) return 0;
  error = "cannot give the databases their write-ahead logs back";
  return -1;
}

}  // namespace ctl

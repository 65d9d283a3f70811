// tests/support/query_world.h
//
// What every query needs around it: an application, contexts and shading groups that are all opaque.
#pragma once
#include <vector>

#include "vq_ctx/ctx_eval.h"
#include "vq_ctx/ctx_shader.h"
#include "vq_of/of_app.h"
#include "vq_of/of_object_factory.h"
#include "vq_shading_variable/shading_variables.h"

struct QueryWorld {
  explicit QueryWorld(uint group_count = 8, uint thread_count = 1)
      : app(thread_count), factory(app), ctx(factory), links(group_count) {
    for (ShadingGroupLinks& link : links) {
      link.material = &material;
      entries.push_back(&link);
    }
    shading = ShadingGroupTable(entries);
  }

  OfApp app;
  OfObjectFactory factory;
  CtxEval ctx;
  CtxShader shader;
  Material material;
  std::vector<ShadingGroupLinks> links;
  std::vector<const ShadingGroupLinks*> entries;
  ShadingGroupTable shading;
};

package com.morvin.dom.telephony.sniffer.sample.storage;

import java.lang.reflect.ParameterizedType;
import java.lang.reflect.RecordComponent;
import java.lang.reflect.Type;
import java.util.ArrayList;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;

/** Converts records to maps with the names of their components, and back. */
final class RecordMapper {
  /** The components of each type: the virtual machine makes new ones for each request. */
  private static final ClassValue<RecordComponent[]> COMPONENTS = new ClassValue<>() {
    @Override
    protected RecordComponent[] computeValue(Class<?> type) {
      return type.getRecordComponents();
    }
  };

  private RecordMapper() {}

  static Object write(Object value) {
    if (value instanceof List<?> list) {
      return list.stream().map(RecordMapper::write).toList();
    }
    if (!value.getClass().isRecord()) {
      return value;
    }
    Map<String, Object> map = new LinkedHashMap<>();
    for (RecordComponent component : COMPONENTS.get(value.getClass())) {
      try {
        map.put(component.getName(), write(component.getAccessor().invoke(value)));
      } catch (ReflectiveOperationException e) {
        throw new IllegalStateException(e);
      }
    }
    return map;
  }

  static CallReport read(Object value) {
    return (CallReport) read(value, CallReport.class);
  }

  private static Object read(Object value, Type type) {
    if (type == long.class) {
      return ((Double) value).longValue();
    }
    if (type instanceof ParameterizedType list) {
      List<Object> elements = new ArrayList<>();
      Type elementType = list.getActualTypeArguments()[0];
      (value == null ? List.of() : (List<?>) value).forEach(element -> elements.add(read(element, elementType)));
      return List.copyOf(elements);
    }
    if (type instanceof Class<?> recordType && recordType.isRecord()) {
      return readRecord((Map<?, ?>) value, recordType);
    }
    return value;
  }

  private static Object readRecord(Map<?, ?> map, Class<?> type) {
    RecordComponent[] components = type.getRecordComponents();
    Object[] values = new Object[components.length];
    Class<?>[] types = new Class<?>[components.length];
    for (int i = 0; i < components.length; i++) {
      types[i] = components[i].getType();
      values[i] = read(map.get(components[i].getName()), components[i].getGenericType());
    }
    try {
      return type.getDeclaredConstructor(types).newInstance(values);
    } catch (ReflectiveOperationException e) {
      throw new IllegalArgumentException(e);
    }
  }
}
